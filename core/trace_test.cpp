#include "n7utility/core/trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "n7utility/core/global_locale_test.h"
#include "n7utility/core/heap_counter_test.h"
#include "n7utility/core/trace_capture_test.h"
#include "n7utility/core/trace_internal.h"
#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/base/TempDir_test.h"

namespace n7trace {
namespace {

using n7platform::test_support::RunConcurrently;

using ::testing::ElementsAre;
using ::testing::MatchesRegex;
using Message = test_support::TraceCapture::Message;
using namespace std::string_view_literals;

// The file the process-wide manager writes to; main() names it in N7_TRACE_FILE.
std::string g_output_path;  // NOLINT(cert-err58-cpp)

std::vector<std::string> read_lines(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// The lines of the process-wide output that belong to one topic.
std::vector<std::string> output_lines_of(const std::string& topic) {
  std::vector<std::string> lines;
  for (std::string& line : read_lines(g_output_path)) {
    if (line.find("] " + topic + " L") != std::string::npos) lines.push_back(std::move(line));
  }
  return lines;
}

// Counts what it receives and any write() that overlaps another one.
class CountingSink : public TraceSink {
 public:
  CountingSink() { get_trace_mgr().add_sink(this); }
  ~CountingSink() override { get_trace_mgr().remove_sink(this); }

  void write(const TraceRecord& /*record*/) override {
    if (in_write_.exchange(true)) overlaps_.fetch_add(1);
    writes_.fetch_add(1);
    in_write_.store(false);
  }

  int writes() const { return writes_.load(); }
  int overlaps() const { return overlaps_.load(); }

 private:
  std::atomic<bool> in_write_{false};
  std::atomic<int> writes_{0};
  std::atomic<int> overlaps_{0};
};

// Collects the messages of `topic` with its level raised to `level`; `handle` is the topic's.
struct CapturedTopic {
  CapturedTopic(const char* topic, std::int8_t level)
      : capture(topic, level, level), handle(get_trace_mgr().topic_handle(topic, 0, level)) {}
  test_support::TraceCapture capture;
  intTopicHdl* handle;
};

TEST(FormatMessageTest, FillsPlaceholdersInOrder) {
  EXPECT_EQ(format_message("Running({},{},{})", "a\0b\0c"sv, true), "Running(a,b,c)");
  EXPECT_EQ(format_message("{} and {}", "x", true), "x and {}");
  EXPECT_EQ(format_message("{}:", "a\0b\0c"sv, true), "a: b c");
  EXPECT_EQ(format_message("no arguments {}", "", false), "no arguments {}");
  EXPECT_EQ(format_message("[{}]", "", true), "[]");
  EXPECT_EQ(format_message("{}|{}|{}", "\0\0"sv, true), "||");
  EXPECT_EQ(format_message("{{}}", "x", true), "{x}");
}

TEST(TraceMessageTest, StreamedArgumentsFillTheFormatAndReachSinksAndOutput) {
  CapturedTopic topic("Message Topic", 61);
  const int line = __LINE__ + 1;
  N7_TRACE_MESSAGE(topic.handle, 61, 3, "CScheduler::Run()", "Utility/Scheduler", "Run({},{},{})")
      << std::string("a b") << 42 << "c";

  EXPECT_THAT(topic.capture.Take(), ElementsAre(Message{"CScheduler::Run()", "Utility/Scheduler",
                                                        "Run(a b,42,c)", 61, 2, 3}));
  const std::vector<std::string> output = output_lines_of("Message Topic");
  ASSERT_EQ(output.size(), 1u);
  EXPECT_THAT(output[0],
              MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z \\[" +
                           std::to_string(::gettid()) +
                           "\\] Message Topic L61 CScheduler::Run\\(\\) \\(Utility/Scheduler:" +
                           std::to_string(line) + "\\): Run\\(a b,42,c\\)"));
}

// "(error = 1722)" stays one number under a host's grouping locale.
TEST(TraceMessageTest, NumbersIgnoreTheHostsGlobalLocale) {
  N7_TEST_UNDER_LOCALE("de_DE.UTF-8");
  CapturedTopic topic("Locale Topic", 10);
  N7_TRACE_MESSAGE(topic.handle, 10, 3, "f", "file", "(error = {}) {} {}")
      << 1722 << -1234567 << 2.5;
  EXPECT_THAT(topic.capture.Take(),
              ElementsAre(Message{"f", "file", "(error = 1722) -1234567 2.5", 10, 2, 3}));
}

TEST(TraceMessageTest, DisabledSiteEvaluatesNothingAndAllocatesNothing) {
  CapturedTopic topic("Guarded Topic", 20);
  intTopicHdl* handle = topic.handle;
  EXPECT_FALSE(trace_enabled(nullptr, -128));
  EXPECT_TRUE(trace_enabled(handle, 20));
  EXPECT_FALSE(trace_enabled(handle, 21));

  int evaluated = 0;
  const auto argument = [&evaluated] {
    ++evaluated;
    return std::string(100, 'x');
  };
  const std::size_t before = n7testing::AllocationsOnThisThread();
  N7_TRACE_MESSAGE(handle, 21, 3, "f", "file", "{}") << argument();
  N7_TRACE_MESSAGE(nullptr, -128, 4, "f", "file", "{}") << argument();
  const std::size_t disabled_allocations = n7testing::AllocationsOnThisThread() - before;
  N7_TRACE_MESSAGE(handle, 20, 3, "f", "file", "{}") << argument();
  const std::size_t enabled_allocations = n7testing::AllocationsOnThisThread() - before;

  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(topic.capture.Take().size(), 1u);
  if (!n7testing::CountsAllocations())
    GTEST_SKIP() << "allocations are not counted under sanitizers";
  EXPECT_EQ(disabled_allocations, 0u);
  EXPECT_GT(enabled_allocations, 0u);  // the counter does see the enabled site
}

TEST(TraceConfigTest, ParsesLevelsAndSkipsMalformedEntries) {
  const internal::TraceConfig config = internal::parse_trace_config(
      " N7Scheduler=41 , Compatibility Topic = -127,,EventLog=127,x=-128, * = 3,"
      "NoLevel,=5,A=128,B=-129,C=ten,D=5x,E=,F=+1,x=9");
  ASSERT_EQ(config.topics.size(), 5u);
  EXPECT_EQ(config.topics[1].topic, "Compatibility Topic");
  EXPECT_EQ(config.topics[1].level, -127);
  EXPECT_EQ(config.all_topics, 3);
  EXPECT_THAT(config.malformed,
              ElementsAre("NoLevel", "=5", "A=128", "B=-129", "C=ten", "D=5x", "E=", "F=+1"));
  EXPECT_EQ(config.level_for("N7Scheduler"), 41);
  EXPECT_EQ(config.level_for("EventLog"), 127);
  EXPECT_EQ(config.level_for("x"), 9);  // the last entry for a name wins
  EXPECT_EQ(config.level_for("Unnamed"), 3);
  EXPECT_TRUE(internal::parse_trace_config("").topics.empty());
}

TEST(TraceManagerTest, TopicsTakeConfiguredLevelsAndKeepTheirHandles) {
  internal::TraceConfig config = internal::parse_trace_config("Named=7");
  internal::TraceManager without_default(config);
  EXPECT_EQ(without_default.topic_handle("Named", 0, 50)->topic->trace_level(), 7);
  EXPECT_EQ(without_default.topic_handle("Other", 0, 50)->topic->trace_level(), 50);
  EXPECT_EQ(without_default.system_topic_handle()->topic->name(), "n7trace");

  config.all_topics = -5;
  internal::TraceManager with_default(config);
  EXPECT_EQ(with_default.topic_handle("Named", 0, 50)->topic->trace_level(), 7);
  EXPECT_EQ(with_default.topic_handle("Other", 0, 50)->topic->trace_level(), -5);
  EXPECT_EQ(with_default.system_topic_handle()->topic->trace_level(), -5);

  // The process-wide manager read N7_TRACE, set by main().
  EXPECT_EQ(get_trace_mgr().topic_handle("Env Topic", 0, -50)->topic->trace_level(), 5);
  EXPECT_EQ(get_trace_mgr().topic_handle("Env Spaced Topic", 0, -50)->topic->trace_level(), -3);
  EXPECT_EQ(get_system_topic_handle(), get_trace_mgr().topic_handle("n7trace", 0, 0));
}

TraceRecord sample_record(std::string_view text) {
  namespace chrono = std::chrono;
  const auto time = chrono::sys_days{chrono::year{2026} / 11 / 22} + chrono::hours{21} +
                    chrono::minutes{10} + chrono::seconds{8} + chrono::milliseconds{123};
  return {"Some Topic", -3, 2, 4, "Fn", "core/x", 9, text, time, 77};
}

TEST(TraceManagerTest, WritesOneLinePerMessageToTheOutputFile) {
  const n7platform::test_support::TempDir dir;
  internal::TraceConfig config;
  config.output_path = dir / "trace.log";
  internal::TraceManager manager(config);
  manager.write(sample_record("two\nlines\r"));
  manager.write(sample_record("second"));
  EXPECT_THAT(
      read_lines(config.output_path),
      ElementsAre("2026-11-22T21:10:08.123Z [77] Some Topic L-3 Fn (core/x:9): two\\nlines\\r",
                  "2026-11-22T21:10:08.123Z [77] Some Topic L-3 Fn (core/x:9): second"));
}

TEST(TraceManagerTest, ReportsConfigurationProblemsOnceOnStandardError) {
  ::testing::internal::CaptureStderr();
  {
    internal::TraceConfig config = internal::parse_trace_config("bad entry,Good=1");
    config.output_path = "/nonexistent-n7trace-dir/trace.log";
    internal::TraceManager manager(config);
    manager.write(sample_record("first"));
    manager.write(sample_record("second"));
  }
  const std::string captured = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(captured,
            "n7trace: cannot open N7_TRACE_FILE '/nonexistent-n7trace-dir/trace.log' (No such "
            "file or directory); writing to standard error\n"
            "n7trace: ignoring malformed N7_TRACE entry 'bad entry'\n"
            "2026-11-22T21:10:08.123Z [77] Some Topic L-3 Fn (core/x:9): first\n"
            "2026-11-22T21:10:08.123Z [77] Some Topic L-3 Fn (core/x:9): second\n");
}

TEST(TraceConcurrencyTest, ConcurrentTopicLookupsShareOneHandle) {
  constexpr int kThreads = 8;
  std::vector<intTopicHdl*> handles(kThreads);
  RunConcurrently(kThreads, [&](int i) {
    handles[static_cast<std::size_t>(i)] = get_trace_mgr().topic_handle("Raced Topic", 0, 1);
  });
  for (intTopicHdl* handle : handles) EXPECT_EQ(handle, handles[0]);
}

TEST(TraceConcurrencyTest, ManyThreadsTraceWholeLines) {
  constexpr int kThreads = 8;
  constexpr int kMessages = 300;
  constexpr std::size_t kTotal = std::size_t{kThreads} * kMessages;
  CapturedTopic topic("Concurrent Topic", 1);
  CountingSink sink;
  RunConcurrently(kThreads, [&](int t) {
    for (int i = 0; i < kMessages; ++i) {
      N7_TRACE_MESSAGE(topic.handle, 1, 2, "worker", "core/trace_test", "message {} {}") << t << i;
    }
  });

  EXPECT_EQ(sink.overlaps(), 0);
  EXPECT_EQ(static_cast<std::size_t>(sink.writes()), kTotal);
  const std::regex line_format(
      "[-0-9]{10}T[:0-9]{8}\\.[0-9]{3}Z \\[[0-9]+\\] Concurrent Topic L1 worker "
      "\\(core/trace_test:[0-9]+\\): message ([0-9]+ [0-9]+)");
  std::set<std::string> seen;
  for (const std::string& line : output_lines_of("Concurrent Topic")) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, line_format)) << line;
    EXPECT_TRUE(seen.insert(match[1]).second) << line;
  }
  EXPECT_EQ(seen.size(), kTotal);
}

}  // namespace
}  // namespace n7trace

// Points the process-wide trace output at a file of this run and configures two topics, before
// any test makes the manager read the environment. A set-up that throws ends the run, as it should.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  const n7platform::test_support::TempDir dir;
  n7trace::g_output_path = dir / "output";
  setenv("N7_TRACE_FILE", n7trace::g_output_path.c_str(), 1);   // NOLINT(concurrency-mt-unsafe)
  setenv("N7_TRACE", "Env Topic=5, Env Spaced Topic = -3", 1);  // NOLINT(concurrency-mt-unsafe)
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
