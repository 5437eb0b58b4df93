// Several threads report at once, through one source and through sources of their own: every
// event must arrive as one whole line.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/system/EventLog.h"

namespace {

using n7platform::test_support::RunConcurrently;

using n7platform::test_support::ScopedEnv;
using n7platform::test_support::TempDir;

TEST(EventLogAppendTest, ConcurrentReportsKeepEveryLineWhole) {
  constexpr int kThreads = 4;
  constexpr int kEvents = 200;
  TempDir dir;
  const std::string file = dir / "events.jsonl";
  ScopedEnv env("N7_EVENTLOG_FILE", file);
  HANDLE shared = RegisterEventSourceW(nullptr, L"Shared");
  ASSERT_NE(shared, nullptr);
  std::vector<HANDLE> own;
  own.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) own.push_back(RegisterEventSourceW(nullptr, L"Own"));

  // Long strings make a torn write show up as a broken line.
  const std::wstring payload(2000, L'x');
  LPCWSTR strings[] = {payload.c_str()};
  RunConcurrently(kThreads, [&](int t) {
    for (int i = 0; i < kEvents; ++i) {
      HANDLE source = i % 2 == 0 ? shared : own[static_cast<std::size_t>(t)];
      ReportEventW(source, EVENTLOG_INFORMATION_TYPE, 0, static_cast<DWORD>(i), nullptr, 1, 0,
                   strings, nullptr);
    }
  });
  for (HANDLE source : own) DeregisterEventSource(source);
  DeregisterEventSource(shared);

  std::ifstream in(file);
  int lines = 0;
  const std::string tail =
      "\"strings\":[\"" + std::string(payload.size(), 'x') + "\"],\"data\":\"\"}";
  for (std::string line; std::getline(in, line); ++lines) {
    ASSERT_EQ(line.rfind("{\"time\":", 0), 0u) << "line " << lines;
    ASSERT_TRUE(line.ends_with(tail)) << "line " << lines;
  }
  EXPECT_EQ(lines, kThreads * kEvents);
}

}  // namespace
