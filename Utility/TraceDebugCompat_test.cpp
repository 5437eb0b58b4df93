#include "n7utility/Utility/TraceDebugCompat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "n7utility/core/error.h"
#include "n7utility/core/trace.h"
#include "n7utility/core/trace_capture_test.h"

namespace {

using n7trace::test_support::TraceCapture;

constexpr char kTopic[] = "Compatibility Topic";
constexpr std::int8_t kRegisteredLevel = -127;

// The compatibility topic's messages at the topic level `level`.
TraceCapture CaptureAt(std::int8_t level) { return {kTopic, kRegisteredLevel, level}; }

struct FlagCase {
  unsigned long flags;
  std::int8_t topic_level;
  bool traced;
  int level, subtype;  // when traced
};

TEST(TraceCompat, FlagsChooseLevelAndSubtypeLastBitWins) {
  const FlagCase cases[] = {
      {0x0, -127, true, 61, 2},  // unflagged: always traced
      {0x1, -127, false, 0, 0},   {0x1, 10, false, 0, 0},     {0x1, 11, true, 11, 4},
      {0x2, 21, true, 21, 3},     {0x4, 41, true, 41, 2},     {0x4, 40, false, 0, 0},
      {0x8, 61, true, 61, 2},     {0x8, 60, false, 0, 0},     {0x3, 11, true, 11, 4},
      {0x6, 21, true, 21, 3},     {0x9, 11, true, 11, 4},     {0x101, 61, true, 61, 2},
      {0x101, 60, false, 0, 0},   {0x8001, 61, true, 61, 2},  {0x10000, 61, true, 61, 2},
      {0x10000, 60, false, 0, 0}, {0x10001, 11, true, 11, 4},
  };
  for (const FlagCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "flags 0x" << std::hex << c.flags << std::dec
                                    << ", topic level " << int{c.topic_level});
    TraceCapture capture = CaptureAt(c.topic_level);
    Trace(L"Module", c.flags, "client.cpp", 7, L"text");
    const std::vector<TraceCapture::Message> traced = capture.Take();
    if (!c.traced) {
      EXPECT_TRUE(traced.empty());
      continue;
    }
    const TraceCapture::Message expected{"Trace()", "client.cpp", "text", c.level, 2, c.subtype};
    EXPECT_EQ(traced, std::vector{expected});
  }
}

// Also keeps the line of each message, which the shared capture leaves out.
class LineCapture : public TraceCapture {
 public:
  LineCapture() : TraceCapture(kTopic, kRegisteredLevel, kRegisteredLevel) {}
  void write(const n7trace::TraceRecord& record) override {
    TraceCapture::write(record);
    if (record.topic != kTopic) return;
    std::lock_guard lock(mutex_);
    lines_.push_back(record.line);
  }
  std::vector<int> TakeLines() {
    std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<int> lines_;
};

TEST(TraceCompat, BothFormsTraceTheTextUnchangedAtTheCallersSite) {
  LineCapture capture;
  Trace(L"Module", 0, "client.cpp", 12, L"%d of %s \u00e9\u20ac\U0001F600", 5, "x");
  CTraceMsg("site.cpp", 34).Print(L"Module", 0, L"%s {} %%", L"ignored");
  const std::vector<TraceCapture::Message> expected = {
      {"Trace()", "client.cpp", "%d of %s \u00e9\u20ac\U0001F600", 61, 2, 2},
      {"Trace()", "site.cpp", "%s {} %%", 61, 2, 2},
  };
  EXPECT_EQ(capture.Take(), expected);
  EXPECT_EQ(capture.TakeLines(), (std::vector{12, 34}));
}

TEST(TraceCompat, TextThatIsNotUnicodeThrowsTheConversionError) {
  TraceCapture capture = CaptureAt(kRegisteredLevel);
  const wchar_t lone_surrogate[] = {0xD800, 0};
  EXPECT_THROW(Trace(L"Module", 0, "client.cpp", 1, lone_surrogate), n7core::ErrorException);
  EXPECT_TRUE(capture.Take().empty());
}

TEST(TraceCompat, TopicIsRegisteredAtLoadAtLowestLevel) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the test changes the environment
  if (std::getenv("N7_TRACE") != nullptr) GTEST_SKIP() << "N7_TRACE sets the topic levels";
  // Asking with another initial level returns the registered topic unchanged.
  n7trace::TraceTopic* topic = n7trace::get_trace_mgr().topic_handle(kTopic, 0, 61)->topic;
  EXPECT_EQ(topic->trace_level(), kRegisteredLevel);
}

}  // namespace
