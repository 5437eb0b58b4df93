#include "n7utility/Utility/EventLog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "n7utility/core/trace_capture_test.h"
#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryFixture_internal.h"

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
  for (const DWORD id : {0x00000001u, 0x40000002u, 0x80000003u, 0xC0000004u}) {
    log.LogMessage(id, 0, nullptr, 0);
  }
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

class EventSourceTest : public ::testing::Test {
 protected:
  static constexpr wchar_t kKey[] =
      L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\App";

  static Message Trace(const char* function, const std::string& text) {
    return {function, "Utility/EventLog", text, 11, 2, 4};
  }

  n7platform::TemporaryRegistry registry_;
  n7trace::test_support::TraceCapture trace_{"EventLog", -127, 61};
};

TEST_F(EventSourceTest, ARegistrationIsReadBackAndOverwritten) {
  // An unknown source leaves the caller's text alone.
  CString file(L"unchanged");
  EXPECT_EQ(QueryEventMessageFile(L"App", file, nullptr), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(file, L"unchanged");
  EXPECT_EQ(AddEventSource(L"App", L"%SystemRoot%/messages.so", 0), 0u);
  DWORD types = 0;
  EXPECT_EQ(QueryEventMessageFile(L"App", file, &types), 0u);
  EXPECT_EQ(file, L"%SystemRoot%/messages.so");  // references stay unexpanded
  EXPECT_EQ(types, 7u);

  // Registering again replaces the two values and keeps any other.
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE, kKey, &key), ERROR_SUCCESS);
  const DWORD other = 5;
  RegSetValueExW(key, L"Other", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&other), 4);
  EXPECT_EQ(AddEventSource(L"App", L"/opt/app/other.so", EVENTLOG_ERROR_TYPE), 0u);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, &types), 0u);
  EXPECT_EQ(file, L"/opt/app/other.so");
  EXPECT_EQ(types, 1u);
  EXPECT_EQ(RegQueryValueExW(key, L"Other", nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);

  // Without a flags pointer the flags are never read, so their absence does not matter.
  RegDeleteValueW(key, L"TypesSupported");
  RegCloseKey(key);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, nullptr), 0u);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, &types), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(types, 1u);
  EXPECT_EQ(
      trace_.Take(),
      (std::vector<Message>{
          Trace("QueryEventMessageFile()",
                "QueryEventMessageFile(App): Can't open event source registry key (error = 2)"),
          Trace("QueryEventMessageFile()",
                "QueryEventMessageFile(App): Can't get event type flags (error = 2)")}));
}

TEST_F(EventSourceTest, NamesBeyond456UnitsAreRefusedBeforeTheRegistry) {
  // The registry limits each key name to 255 characters: a name that long has two levels.
  const std::wstring longest = std::wstring(227, L'n') + L"\\" + std::wstring(228, L'n');
  EXPECT_EQ(AddEventSource(longest.c_str(), L"m.so", 0), 0u);
  const std::wstring too_long = longest + L"n";
  EXPECT_EQ(AddEventSource(too_long.c_str(), L"m.so", 0), ERROR_INVALID_PARAMETER);
  // A character outside the BMP takes two units.
  const std::wstring wide = std::wstring(455, L'n') + L"\U0001F600";
  EXPECT_EQ(AddEventSource(wide.c_str(), L"m.so", 0), ERROR_INVALID_PARAMETER);
  CString file;
  EXPECT_EQ(QueryEventMessageFile(too_long.c_str(), file, nullptr), ERROR_INVALID_PARAMETER);
  const std::vector<Message> traces = trace_.Take();
  ASSERT_EQ(traces.size(), 3u);
  EXPECT_EQ(traces[0], Trace("AddEventSource()", "AddEventSource(" + std::string(227, 'n') + "\\" +
                                                     std::string(229, 'n') +
                                                     "): Can't create event source registry key "
                                                     "(error = 87)"));
}

TEST_F(EventSourceTest, AMessageFileLongerThanTheBufferIsMoreData) {
  const std::wstring fits(511, L'f');
  CString file;
  ASSERT_EQ(AddEventSource(L"App", fits.c_str(), 0), 0u);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, nullptr), 0u);
  EXPECT_EQ(file.GetLength(), 511);
  ASSERT_EQ(AddEventSource(L"App", (fits + L"f").c_str(), 0), 0u);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, nullptr), ERROR_MORE_DATA);
  EXPECT_EQ(file.GetLength(), 511);

  // Exactly a full buffer without a terminator: the text ends at the buffer's end.
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyW(HKEY_LOCAL_MACHINE, kKey, &key), ERROR_SUCCESS);
  const std::wstring full(512, L'g');
  RegSetValueExW(key, L"EventMessageFile", 0, REG_EXPAND_SZ,
                 reinterpret_cast<const BYTE*>(full.data()),
                 static_cast<DWORD>(full.size() * sizeof(wchar_t)));
  RegCloseKey(key);
  EXPECT_EQ(QueryEventMessageFile(L"App", file, nullptr), 0u);
  EXPECT_EQ(file, full.c_str());
}

}  // namespace
