// The event log's syslog path against a real syslog daemon: what a report sends must arrive with
// the source as identifier, the priority of its type and every string, none lost under load, and a
// daemon that is gone or stuck must make reports fail, not hang.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Daemons.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/EventLog.h"

namespace {

using n7test::SyslogDaemon;
using n7test::TempDir;
using Record = SyslogDaemon::Record;

constexpr int kFacilityUser = 1;

// The message the documented format gives for `id`, category 0 and `strings` (in UTF-8).
std::string Message(DWORD id, const std::vector<std::wstring>& strings) {
  char head[40];
  std::snprintf(head, sizeof head, "event 0x%08X, category 0", id);
  std::string message = head;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    message += (i == 0 ? ": " : " | ") + n7core::to_string(strings[i]);
  }
  return message;
}

class EventLogDaemonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The tests run one at a time, with no other thread of theirs left running.
    unsetenv("N7_EVENTLOG_FILE");                                  // NOLINT(concurrency-mt-unsafe)
    setenv("N7_SYSLOG_SOCKET", daemon_.socket_path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
  void TearDown() override { unsetenv("N7_SYSLOG_SOCKET"); }  // NOLINT(concurrency-mt-unsafe)

  // Reports one event of category 0 without raw data through `log`.
  static BOOL Report(HANDLE log, WORD type, DWORD id, const std::vector<std::wstring>& strings) {
    std::vector<LPCWSTR> pointers;
    pointers.reserve(strings.size());
    for (const std::wstring& text : strings) pointers.push_back(text.c_str());
    return ReportEventW(log, type, 0, id, nullptr, static_cast<WORD>(pointers.size()), 0,
                        pointers.data(), nullptr);
  }

  TempDir dir_;
  SyslogDaemon daemon_{dir_.path()};
};

TEST_F(EventLogDaemonTest, EachTypeArrivesWithTheSourceAsIdentifierAndItsPriority) {
  struct Case {
    WORD type;
    int severity;
  };
  const Case cases[] = {{EVENTLOG_SUCCESS, 6},       {EVENTLOG_ERROR_TYPE, 3},
                        {EVENTLOG_WARNING_TYPE, 4},  {EVENTLOG_INFORMATION_TYPE, 6},
                        {EVENTLOG_AUDIT_SUCCESS, 6}, {EVENTLOG_AUDIT_FAILURE, 5}};
  HANDLE log = RegisterEventSourceW(nullptr, L"n7Types");
  ASSERT_NE(log, nullptr);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    ASSERT_TRUE(Report(log, cases[i].type, static_cast<DWORD>(0xC0000100 + i), {L"text"}));
  }
  DeregisterEventSource(log);
  const std::vector<Record> records = daemon_.WaitForRecords(std::size(cases));
  ASSERT_EQ(records.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE("type " + std::to_string(cases[i].type));
    EXPECT_EQ(records[i].identifier, "n7Types");
    EXPECT_EQ(records[i].severity, cases[i].severity);
    EXPECT_EQ(records[i].facility, kFacilityUser);
    EXPECT_EQ(records[i].message, Message(static_cast<DWORD>(0xC0000100 + i), {L"text"}));
  }
}

TEST_F(EventLogDaemonTest, EveryStringArrivesWhole) {
  std::vector<std::wstring> sixteen;
  sixteen.reserve(16);
  for (int i = 0; i < 16; ++i) sixteen.push_back(L"s" + std::to_wstring(i));
  const std::vector<std::wstring> cases[] = {
      {},
      {L"one"},
      sixteen,
      {L"Gr\u00fc\u00dfe", L"\u6771\u4eac \u2713", L"\U0001F600"},
      {std::wstring(3000, L'x'), L"tail"},  // more than 2 KiB in one datagram
  };
  HANDLE log = RegisterEventSourceW(nullptr, L"n7Strings");
  ASSERT_NE(log, nullptr);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    ASSERT_TRUE(Report(log, EVENTLOG_INFORMATION_TYPE, static_cast<DWORD>(i), cases[i]));
  }
  DeregisterEventSource(log);
  const std::vector<Record> records = daemon_.WaitForRecords(std::size(cases));
  ASSERT_EQ(records.size(), std::size(cases));
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(records[i].identifier, "n7Strings");
    EXPECT_EQ(records[i].message, Message(static_cast<DWORD>(i), cases[i])) << "case " << i;
  }
}

TEST_F(EventLogDaemonTest, NoEventIsLostWhenThreadsReportAtOnce) {
  constexpr DWORD kThreads = 4;
  constexpr DWORD kPerThread = 2500;
  HANDLE log = RegisterEventSourceW(nullptr, L"n7Burst");
  ASSERT_NE(log, nullptr);
  std::vector<DWORD> failures(kThreads);
  {
    std::vector<std::jthread> threads;
    for (DWORD t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (DWORD i = 0; i < kPerThread; ++i) {
          if (!Report(log, EVENTLOG_WARNING_TYPE, t * kPerThread + i, {L"burst"})) ++failures[t];
        }
      });
    }
  }
  DeregisterEventSource(log);
  EXPECT_EQ(failures, std::vector<DWORD>(kThreads, 0));
  const std::vector<Record> records = daemon_.WaitForRecords(std::size_t{kThreads} * kPerThread);
  std::set<std::string> messages;
  for (const Record& record : records) {
    if (record.identifier == "n7Burst" && record.severity == 4) messages.insert(record.message);
  }
  EXPECT_EQ(records.size(), kThreads * kPerThread);
  EXPECT_EQ(messages.size(), kThreads * kPerThread);
  EXPECT_TRUE(messages.contains(Message(kThreads * kPerThread - 1, {L"burst"})));
}

TEST_F(EventLogDaemonTest, ReportsFailPromptlyWhenTheDaemonIsGone) {
  HANDLE log = RegisterEventSourceW(nullptr, L"n7Gone");
  ASSERT_NE(log, nullptr);
  ASSERT_TRUE(Report(log, EVENTLOG_ERROR_TYPE, 1, {}));
  ASSERT_EQ(daemon_.WaitForRecords(1).size(), 1u);
  daemon_.process().Stop();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Report(log, EVENTLOG_ERROR_TYPE, 2, {}));
  EXPECT_EQ(GetLastError(), ERROR_EVENTLOG_CANT_START);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  DeregisterEventSource(log);
}

// A daemon that stops reading fills its socket's queue; the report that finds it full must give up
// after its bounded wait instead of blocking its thread for good.
TEST_F(EventLogDaemonTest, ReportsGiveUpOnADaemonThatStopsReading) {
  HANDLE log = RegisterEventSourceW(nullptr, L"n7Stuck");
  ASSERT_NE(log, nullptr);
  daemon_.process().Signal(SIGSTOP);
  const std::wstring filler(1000, L'f');
  bool failed = false;
  std::chrono::steady_clock::duration longest{};
  for (DWORD i = 0; i < 100000 && !failed; ++i) {
    const auto start = std::chrono::steady_clock::now();
    failed = !Report(log, EVENTLOG_INFORMATION_TYPE, i, {filler});
    longest = std::max(longest, std::chrono::steady_clock::now() - start);
  }
  daemon_.process().Signal(SIGCONT);
  EXPECT_TRUE(failed);
  EXPECT_EQ(GetLastError(), ERROR_EVENTLOG_CANT_START);
  EXPECT_LT(longest, std::chrono::seconds(4));
  DeregisterEventSource(log);
}

}  // namespace
