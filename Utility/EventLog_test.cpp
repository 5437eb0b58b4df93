#include "Utility/EventLog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "core/trace_capture_test.h"
#include "platform/TempDir_test.h"

namespace {

using n7platform::test_support::ScopedEnv;
using n7platform::test_support::TempDir;
using Message = n7trace::test_support::TraceCapture::Message;

// An event as the file backend wrote it, reduced to what these tests look at.
struct Event {
  int type;
  unsigned long id;
  std::string strings;  // the JSON array
  bool operator==(const Event&) const = default;
};

class CEventLogTest : public ::testing::Test {
 protected:
  std::vector<Event> Events() const {
    static const std::regex kLine(
        R"re("type":(\d+),"category":0,"id":(\d+),"strings":(\[.*\]),"data":"")re");
    std::ifstream in(file_);
    std::vector<Event> events;
    for (std::string line; std::getline(in, line);) {
      std::smatch match;
      EXPECT_TRUE(std::regex_search(line, match, kLine)) << line;
      events.push_back({std::stoi(match[1]), std::stoul(match[2]), match[3]});
    }
    return events;
  }

  static Message Trace(const char* function, int level, const std::string& text) {
    return {function, "Utility/EventLog", text, level, 2, level == 11 ? 4 : 3};
  }

  TempDir dir_;
  const std::string file_ = dir_ / "events.jsonl";
  ScopedEnv env_{"N7_EVENTLOG_FILE", file_};
  n7trace::test_support::TraceCapture trace_{"EventLog", -127, 61};
};

TEST_F(CEventLogTest, TheTypeComesFromTheIdentifiersTopBits) {
  CEventLog log(L"App");
  log.LogMessage(0x00000001u, 0, nullptr, 0);
  log.LogMessage(0x40000002u, 0, nullptr, 0);
  log.LogMessage(0x80000003u, 0, nullptr, 0);
  log.LogMessage(0xC0000004u, 0, nullptr, 0);
  EXPECT_EQ(Events(), (std::vector<Event>{{4, 0x00000001u, "[]"},
                                          {4, 0x40000002u, "[]"},
                                          {2, 0x80000003u, "[]"},
                                          {1, 0xC0000004u, "[]"}}));
  EXPECT_TRUE(trace_.Take().empty());
}

TEST_F(CEventLogTest, SeventeenStringsAreCutToSixteenWithATrace) {
  CEventLog log(L"App");
  log.LogMessage(1, 0, nullptr, 17, L"1", L"2", L"3", L"4", L"5", L"6", L"7", L"8", L"9", L"10",
                 L"11", L"12", L"13", L"14", L"15", L"16", L"17");
  LPCWSTR array[] = {L"a", L"b"};
  log.LogMessage(2, 0, nullptr, 2, array);
  EXPECT_EQ(
      Events(),
      (std::vector<Event>{
          {4, 1, R"(["1","2","3","4","5","6","7","8","9","10","11","12","13","14","15","16"])"},
          {4, 2, R"(["a","b"])"}}));
  EXPECT_EQ(trace_.Take(), (std::vector<Message>{Trace("CEventLog::LogMessage()", 21,
                                                       "CEventLog::LogMessage(): Too many strings "
                                                       "(17)")}));
}

TEST_F(CEventLogTest, AFailedRegistrationIsTracedAndDropsReports) {
  {
    CEventLog remote(L"App", L"\\\\far.invalid");
    remote.LogMessage(1, 0, nullptr, 1, L"dropped");
  }
  {
    ScopedEnv unwritable("N7_EVENTLOG_FILE", dir_ / "missing/events.jsonl");
    CEventLog local(L"Local");
    local.LogMessage(1, 0, nullptr, 0);
  }
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(
      trace_.Take(),
      (std::vector<Message>{
          Trace("CEventLog::CEventLog()", 11,
                "CEventLog(App, \\\\far.invalid): Can't register event source (error = 1722)"),
          Trace("CEventLog::CEventLog()", 11,
                "CEventLog(Local, <null>): Can't register event source (error = 3)")}));
}

TEST_F(CEventLogTest, AFailedReportIsTracedWithTheIdentifierInHex) {
  CEventLog log(L"App");
  log.LogMessage(0xC000ABCDu, 0, nullptr, 1, L"\xD800");
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(trace_.Take(), (std::vector<Message>{Trace("CEventLog::Log()", 11,
                                                       "Log(0xc000abcd): Can't report event "
                                                       "(error = 87)")}));
}

}  // namespace
