#include "n7utility/platform/system/EventLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

using n7platform::test_support::ScopedEnv;
using n7platform::test_support::TempDir;

// The lines of the event file, each without its time field, which is checked on the way.
std::vector<std::string> ReadEvents(const std::string& path) {
  static const std::regex kTime(R"(^\{"time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z",)");
  std::ifstream in(path);
  std::vector<std::string> events;
  for (std::string line; std::getline(in, line);) {
    std::smatch time;
    EXPECT_TRUE(std::regex_search(line, time, kTime)) << line;
    events.push_back("{" + time.suffix().str());
  }
  return events;
}

class EventLogTest : public ::testing::Test {
 protected:
  TempDir dir_;
  const std::string file_ = dir_ / "events.jsonl";
  ScopedEnv env_{"N7_EVENTLOG_FILE", file_};
};

TEST_F(EventLogTest, EventsAreReadBackFromTheFileWithTheirTextsEscaped) {
  HANDLE app = RegisterEventSourceW(nullptr, L"App \"one\"");
  HANDLE other = RegisterEventSourceW(L"", L"Other");
  ASSERT_NE(app, nullptr);
  ASSERT_NE(other, nullptr);
  LPCWSTR strings[] = {L"line\nbreak\ttab \\ \"q\"", nullptr, L"\x01 caf\u00e9 \U0001F600"};
  const BYTE data[] = {0x00, 0x7f, 0xff};
  EXPECT_TRUE(ReportEventW(app, EVENTLOG_WARNING_TYPE, 3, 0x80000102u, nullptr, 3, sizeof data,
                           strings, const_cast<BYTE*>(data)));
  EXPECT_TRUE(
      ReportEventW(other, EVENTLOG_INFORMATION_TYPE, 0, 7, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_TRUE(DeregisterEventSource(app));
  EXPECT_TRUE(DeregisterEventSource(other));

  EXPECT_EQ(ReadEvents(file_),
            (std::vector<std::string>{
                R"({"source":"App \"one\"","type":2,"category":3,"id":2147483906,)"
                R"("strings":["line\nbreak\ttab \\ \"q\"","","\u0001 café 😀"],"data":"007fff"})",
                R"({"source":"Other","type":4,"category":0,"id":7,"strings":[],"data":""})"}));
}

TEST_F(EventLogTest, ARemoteServerIsRefusedAndThisHostIsAccepted) {
  SetLastError(0);
  EXPECT_EQ(RegisterEventSourceW(L"\\\\elsewhere.invalid", L"App"), nullptr);
  EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);

  char host[HOST_NAME_MAX + 1] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  const std::wstring local =
      L"\\\\" + std::wstring(host, host + std::char_traits<char>::length(host));
  HANDLE source = RegisterEventSourceW(local.c_str(), L"App");
  EXPECT_NE(source, nullptr);
  EXPECT_TRUE(DeregisterEventSource(source));
}

TEST_F(EventLogTest, BadArgumentsAreRefused) {
  EXPECT_EQ(RegisterEventSourceW(nullptr, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegisterEventSourceW(nullptr, L""), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

  HANDLE source = RegisterEventSourceW(nullptr, L"App");
  ASSERT_NE(source, nullptr);
  EXPECT_FALSE(ReportEventW(source, 3, 0, 1, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  LPCWSTR surrogate[] = {L"\xD800"};
  EXPECT_FALSE(ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, surrogate, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_TRUE(DeregisterEventSource(source));

  EXPECT_FALSE(DeregisterEventSource(source));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(ReportEventW(source, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_TRUE(ReadEvents(file_).empty());
}

TEST(EventLogFileTest, AnUnopenableFileFailsTheRegistration) {
  TempDir dir;
  ScopedEnv env("N7_EVENTLOG_FILE", dir / "missing/events.jsonl");
  EXPECT_EQ(RegisterEventSourceW(nullptr, L"App"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

}  // namespace
