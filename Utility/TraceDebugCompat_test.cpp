#include "Utility/TraceDebugCompat.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "core/error.h"
#include "core/trace.h"

namespace {

constexpr char kTopic[] = "Compatibility Topic";

struct Traced {
  int level, msg_type, subtype;
  std::string function, file, text;
  int line;
};

// Keeps the last message of the compatibility topic, with the topic set to a chosen level and
// put back afterwards.
class CompatCapture : public n7trace::TraceSink {
 public:
  CompatCapture() : topic_(n7trace::get_trace_mgr().topic_handle(kTopic, 0, -127)->topic) {
    saved_level_ = topic_->trace_level();
    n7trace::get_trace_mgr().add_sink(this);
  }
  ~CompatCapture() override {
    n7trace::get_trace_mgr().remove_sink(this);
    topic_->set_trace_level(saved_level_);
  }
  CompatCapture(const CompatCapture&) = delete;
  CompatCapture& operator=(const CompatCapture&) = delete;

  void SetLevel(std::int8_t level) { topic_->set_trace_level(level); }

  void write(const n7trace::TraceRecord& record) override {
    if (record.topic != kTopic) return;
    std::lock_guard lock(mutex_);
    last_ = Traced{record.level,
                   record.msg_type,
                   record.user_msg_type,
                   std::string(record.function),
                   std::string(record.file),
                   std::string(record.text),
                   record.line};
  }
  std::optional<Traced> Take() {
    std::lock_guard lock(mutex_);
    return std::exchange(last_, std::nullopt);
  }

 private:
  n7trace::TraceTopic* topic_;
  std::int8_t saved_level_;
  std::mutex mutex_;
  std::optional<Traced> last_;
};

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
  CompatCapture capture;
  for (const FlagCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "flags 0x" << std::hex << c.flags << std::dec
                                    << ", topic level " << int{c.topic_level});
    capture.SetLevel(c.topic_level);
    Trace(L"Module", c.flags, "client.cpp", 7, L"text");
    const std::optional<Traced> traced = capture.Take();
    ASSERT_EQ(traced.has_value(), c.traced);
    if (!c.traced) continue;
    EXPECT_EQ(traced->level, c.level);
    EXPECT_EQ(traced->subtype, c.subtype);
    EXPECT_EQ(traced->msg_type, 2);
  }
}

TEST(TraceCompat, BothFormsTraceTheTextUnchangedWithTheCallersSite) {
  CompatCapture capture;
  Trace(L"Module", 0, "client.cpp", 12, L"%d of %s \u00e9\u20ac\U0001F600", 5, "x");
  EXPECT_EQ(capture.Take()->text, "%d of %s \u00e9\u20ac\U0001F600");

  CTraceMsg("site.cpp", 34).Print(L"Module", 0, L"%s {} %%", L"ignored");
  const std::optional<Traced> traced = capture.Take();
  ASSERT_TRUE(traced.has_value());
  EXPECT_EQ(traced->text, "%s {} %%");
  EXPECT_EQ(traced->function, "Trace()");
  EXPECT_EQ(traced->file, "site.cpp");
  EXPECT_EQ(traced->line, 34);
}

TEST(TraceCompat, TextThatIsNotUnicodeThrowsTheConversionError) {
  CompatCapture capture;
  const wchar_t lone_surrogate[] = {0xD800, 0};
  EXPECT_THROW(Trace(L"Module", 0, "client.cpp", 1, lone_surrogate), n7core::ErrorException);
  EXPECT_FALSE(capture.Take().has_value());
}

TEST(TraceCompat, TopicIsRegisteredAtLoadAtLowestLevel) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in the test changes the environment
  if (std::getenv("N7_TRACE") != nullptr) GTEST_SKIP() << "N7_TRACE sets the topic levels";
  // Asking with another initial level returns the registered topic unchanged.
  n7trace::TraceTopic* topic = n7trace::get_trace_mgr().topic_handle(kTopic, 0, 61)->topic;
  EXPECT_EQ(topic->trace_level(), -127);
}

}  // namespace
