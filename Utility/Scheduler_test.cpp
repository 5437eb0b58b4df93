// Tests of the process-wide scheduler on a manual clock.
//
// The whole binary runs on one ManualClock, installed before the dispatch thread exists; the
// dispatch thread is the only thread that ever sleeps on it. Settle() returns once that thread
// has consumed every wake-up and clock step and is asleep again, so "nothing ran" can be checked
// without sleeping.

#include "n7utility/Utility/Scheduler.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "n7utility/core/trace.h"
#include "n7utility/core/trace_capture_test.h"
#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/Clock.h"
#include "n7utility/platform/kernel/ManualClock.h"

namespace {

using N7OS::CN7DateTime;
using n7platform::test_support::RunConcurrently;

constexpr std::uint64_t kSecond = 1000;
constexpr std::uint64_t kDay = 86400 * kSecond;

n7platform::ManualClock* g_clock = nullptr;

// The dispatch thread has taken every signal and clock step so far and waits again.
void Settle() { g_clock->AwaitSleepers(1); }

void Advance(std::uint64_t milliseconds) {
  g_clock->Advance(milliseconds);
  Settle();
}

struct Firing {
  const void* callback;
  void* context;
  unsigned long id;
  std::int64_t at;  // clock seconds when the callback ran
  bool operator==(const Firing&) const = default;
};

// Every callback run, in order, from every Recorder.
class FiringLog {
 public:
  void Add(const Firing& firing) {
    std::lock_guard lock(mutex_);
    firings_.push_back(firing);
    changed_.notify_all();
  }
  // Blocks until `count` callbacks have run in all; returns them.
  std::vector<Firing> WaitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return firings_.size() >= count; });
    return firings_;
  }
  std::vector<Firing> Snapshot() {
    std::lock_guard lock(mutex_);
    return firings_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Firing> firings_;
};

class Recorder : public ASchedulerCallback {
 public:
  Recorder(const char* description, FiringLog& log) : ASchedulerCallback(description), log_(log) {}
  Recorder(const wchar_t* description, FiringLog& log)
      : ASchedulerCallback(description), log_(log) {}

  // Runs inside the callback, before the firing is logged.
  std::function<void(void*, unsigned long)> on_task;

 protected:
  void OnScheduledTask(void* context, unsigned long id) override {
    if (on_task) on_task(context, id);
    log_.Add({this, context, id, CN7DateTime::now().seconds()});
  }

 private:
  FiringLog& log_;
};

std::int64_t Now() { return CN7DateTime::now().seconds(); }

class SchedulerTest : public ::testing::Test {
 protected:
  FiringLog log_;
  int context_a_ = 0;
  int context_b_ = 0;
};

TEST_F(SchedulerTest, NoDelayInvalidOrPastTimeRunsAtOnce) {
  Recorder recorder("at once", log_);
  const std::int64_t start = Now();
  recorder.ScheduleTaskForSec(&context_a_, 7, 0);
  recorder.ScheduleTaskAt(&context_a_, 9, CN7DateTime());
  recorder.ScheduleTaskAt(&context_a_, 10, CN7DateTime(Now() - 100));
  const auto firings = log_.WaitFor(3);
  for (const Firing& firing : firings) EXPECT_EQ(firing.at, start);
  Settle();
}

TEST_F(SchedulerTest, RescheduleReplacesThePendingTask) {
  Recorder recorder("replace", log_);
  const std::int64_t start = Now();
  recorder.ScheduleTaskForSec(&context_a_, 7, 60);
  recorder.ScheduleTaskForSec(&context_a_, 7, 10);
  EXPECT_TRUE(recorder.IsScheduled(&context_a_, 7));
  Settle();
  Advance(9 * kSecond);
  EXPECT_TRUE(log_.Snapshot().empty());
  Advance(1 * kSecond);
  EXPECT_EQ(log_.WaitFor(1)[0], (Firing{&recorder, &context_a_, 7, start + 10}));
  EXPECT_FALSE(recorder.IsScheduled(&context_a_, 7));
  Advance(60 * kSecond);
  EXPECT_EQ(log_.Snapshot().size(), 1u);
}

TEST_F(SchedulerTest, NextPeriodCountsFromLocalMidnight) {
  Recorder recorder("period", log_);
  // Local time 10:15:00 now: UTC plus an offset that lands there.
  const std::int64_t seconds_of_day = Now() % 86400;
  g_clock->SetLocalOffset((10 * 3600 + 15 * 60 - seconds_of_day + 86400) % 86400);
  recorder.ScheduleTaskForNextPeriodSec(&context_a_, 1, 60);  // 10:16:00, a whole period
  Settle();
  Advance(59 * kSecond);
  EXPECT_TRUE(log_.Snapshot().empty());
  Advance(1 * kSecond);
  log_.WaitFor(1);

  Advance(59 * kSecond);                                      // local 10:16:59
  recorder.ScheduleTaskForNextPeriodSec(&context_a_, 2, 60);  // 10:17:00, one second away
  recorder.ScheduleTaskForNextPeriodSec(&context_a_, 3, 0);
  recorder.ScheduleTaskForNextPeriodSec(&context_a_, 4, -60);
  EXPECT_FALSE(recorder.IsScheduled(&context_a_, 3));
  EXPECT_FALSE(recorder.IsScheduled(&context_a_, 4));
  Settle();
  Advance(1 * kSecond);
  EXPECT_EQ(log_.WaitFor(2)[1].id, 2u);
  g_clock->SetLocalOffset(0);
}

TEST_F(SchedulerTest, MeteredRunsAreSpacedFromThePreviousDueTime) {
  Recorder recorder("metered", log_);
  bool pending_inside = true;
  bool first_run = true;
  recorder.on_task = [&](void* context, unsigned long id) {
    pending_inside = recorder.IsScheduled(context, id);
    if (first_run) recorder.ScheduleTaskMetered(context, id, 30);  // not pending: spaced
    first_run = false;
  };
  const std::int64_t start = Now();
  recorder.ScheduleTaskMetered(&context_a_, 5, 30);  // first ever: at once
  EXPECT_EQ(log_.WaitFor(1)[0].at, start);
  EXPECT_FALSE(pending_inside);
  Settle();
  EXPECT_TRUE(recorder.IsScheduled(&context_a_, 5));
  Advance(10 * kSecond);
  recorder.ScheduleTaskMetered(&context_a_, 5, 1);  // pending: ignored, keeps start + 30
  Settle();
  Advance(19 * kSecond);
  EXPECT_EQ(log_.Snapshot().size(), 1u);
  Advance(1 * kSecond);
  EXPECT_EQ(log_.WaitFor(2)[1].at, start + 30);

  // Descheduling does not forget the last due time.
  Settle();
  recorder.ScheduleTaskMetered(&context_a_, 5, 30);  // due start + 60
  recorder.DescheduleTask(&context_a_, 5);
  recorder.ScheduleTaskMetered(&context_a_, 5, 30);  // spaced from start + 60
  Settle();
  Advance(59 * kSecond);
  EXPECT_EQ(log_.Snapshot().size(), 2u);
  Advance(1 * kSecond);
  EXPECT_EQ(log_.WaitFor(3)[2].at, start + 90);

  // Long after the last run it runs at once.
  Settle();
  Advance(600 * kSecond);
  recorder.ScheduleTaskMetered(&context_a_, 5, 30);
  EXPECT_EQ(log_.WaitFor(4)[3].at, start + 690);
  Settle();
}

TEST_F(SchedulerTest, CallbacksMayScheduleAndDescheduleTheirOwnTasks) {
  Recorder recorder("reentrant", log_);
  const std::int64_t start = Now();
  int runs_of_1 = 0;
  recorder.on_task = [&](void* context, unsigned long id) {
    if (id != 1 || ++runs_of_1 > 1) return;
    recorder.ScheduleTaskForSec(context, 2, 0);
    recorder.DescheduleTask(context, 3);
    recorder.ScheduleTaskForSec(context, 1, 10);
  };
  recorder.ScheduleTaskForSec(&context_a_, 3, 5);
  recorder.ScheduleTaskForSec(&context_a_, 1, 0);
  auto firings = log_.WaitFor(2);
  EXPECT_EQ(firings[1].id, 2u);
  Settle();
  Advance(10 * kSecond);
  firings = log_.WaitFor(3);
  Settle();
  EXPECT_EQ(log_.Snapshot().size(), 3u);
  EXPECT_EQ(firings[2], (Firing{&recorder, &context_a_, 1, start + 10}));
}

// Descheduling a context and destroying a callback each remove their own group of tasks only:
// the survivor's task shares its context and id with one of the destroyed callback's.
TEST_F(SchedulerTest, DescheduleTasksAndDestructionRemoveOnlyTheirGroup) {
  auto doomed = std::make_unique<Recorder>("doomed", log_);
  doomed->ScheduleTaskForSec(&context_a_, 1, 5);
  doomed->ScheduleTaskForSec(&context_b_, 1, 5);
  Recorder survivor("survivor", log_);
  for (unsigned long id : {1ul, 2ul, 3ul}) survivor.ScheduleTaskForSec(&context_a_, id, 5);
  survivor.ScheduleTaskForSec(&context_b_, 1, 5);
  survivor.DescheduleTasks(&context_a_);
  for (unsigned long id : {1ul, 2ul, 3ul}) EXPECT_FALSE(survivor.IsScheduled(&context_a_, id));
  EXPECT_TRUE(doomed->IsScheduled(&context_a_, 1));
  doomed.reset();
  ASSERT_TRUE(survivor.IsScheduled(&context_b_, 1));
  Settle();
  Advance(5 * kSecond);
  const auto firings = log_.WaitFor(1);
  Settle();
  ASSERT_EQ(log_.Snapshot().size(), 1u);
  EXPECT_EQ(firings[0].callback, &survivor);
  EXPECT_EQ(firings[0].context, &context_b_);
}

TEST_F(SchedulerTest, CopiesTakeTheDescriptionButNotTheTasks) {
  Recorder original(L"Zeitplan \u00e4\U0001F600", log_);
  original.ScheduleTaskForSec(&context_a_, 1, 5);
  Recorder copy(original);
  EXPECT_EQ(copy.QueryDescription(), "Zeitplan \xc3\xa4\xf0\x9f\x98\x80");
  EXPECT_FALSE(copy.IsScheduled(&context_a_, 1));
  EXPECT_TRUE(original.IsScheduled(&context_a_, 1));
  original.DescheduleTasks(&context_a_);
}

TEST_F(SchedulerTest, TaskFarAheadIsNotRunEarly) {
  Recorder recorder("far", log_);
  const std::int64_t start = Now();
  recorder.ScheduleTaskForSec(&context_a_, 1, 100 * 86400);
  Settle();
  Advance(50 * kDay);  // past the longest single wait
  Advance(49 * kDay);
  Advance(kDay - kSecond);
  EXPECT_TRUE(log_.Snapshot().empty());
  Advance(kSecond);
  EXPECT_EQ(log_.WaitFor(1)[0].at, start + 100L * 86400);
  Settle();
}

TEST_F(SchedulerTest, ManyThreadsScheduleAndDescheduleAtOnce) {
  constexpr int kThreads = 4;
  constexpr unsigned long kTasks = 200;
  std::vector<std::unique_ptr<Recorder>> recorders;
  recorders.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) recorders.push_back(std::make_unique<Recorder>("busy", log_));
  RunConcurrently(kThreads, [&](int t) {
    Recorder& recorder = *recorders[static_cast<std::size_t>(t)];
    for (unsigned long id = 0; id < kTasks; ++id) {
      recorder.ScheduleTaskForSec(&context_a_, id, id % 2 == 0 ? 0 : 5);
      if (id % 4 == 1) recorder.DescheduleTask(&context_a_, id);
    }
  });
  Settle();
  Advance(5 * kSecond);
  // Even ids ran at once, odd ids not descheduled ran after 5 s.
  const std::size_t expected = kThreads * (kTasks / 2 + kTasks / 4);
  log_.WaitFor(expected);
  Settle();
  EXPECT_EQ(log_.Snapshot().size(), expected);
}

// Collects the scheduler's trace messages, with its topic at the level that shows them all.
class TraceCapture : public n7trace::test_support::TraceCapture {
 public:
  TraceCapture() : n7trace::test_support::TraceCapture("N7Scheduler", 41, 61) {}
};
using Message = TraceCapture::Message;

std::string PointerText(const void* pointer) {
  std::ostringstream text;
  text << pointer;
  return text.str();
}

TEST_F(SchedulerTest, TraceMessagesNameTheTaskAndItsTime) {
  Recorder recorder("traced", log_);
  TraceCapture capture;
  const std::string context = PointerText(&context_a_);

  recorder.ScheduleTaskForSec(&context_a_, 4, 10);
  recorder.DescheduleTask(&context_a_, 4);
  recorder.ScheduleTaskAt(&context_a_, 5, CN7DateTime());
  log_.WaitFor(1);
  Settle();
  recorder.DescheduleTasks(&context_a_);
  auto messages = capture.Take();
  // The destructor's message comes last; take it with the others.
  { Recorder other("gone", log_); }
  auto tail = capture.Take();
  messages.insert(messages.end(), tail.begin(), tail.end());

  const auto message = [](const char* function, const std::string& text) {
    return Message{function, "Utility/Scheduler", text, 61, 2, 2};
  };
  const std::vector<Message> expected = {
      message("CScheduler::ScheduleTask()", "ScheduleTaskAt(traced," + context + ",4) in 10 sec"),
      message("CScheduler::DescheduleTask", "DescheduleTask(traced," + context + ",4)"),
      message("CScheduler::ScheduleTask()", "ScheduleTaskAt(traced," + context + ",5) in 0 sec"),
      message("CScheduler::MemberThread()", "Running(traced," + context + ",5)"),
      message("CScheduler::DescheduleTasks", "DescheduleTasks(traced," + context + ")"),
      message("CScheduler::DescheduleTasks", "DescheduleTask(gone)"),
  };
  EXPECT_EQ(messages, expected);
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // A whole second in UTC, so second-granular due times and waits line up with clock steps. The
  // dispatch thread sleeps on the clock until the process ends, so the clock is never destroyed.
  static n7platform::NoDestructor<n7platform::ManualClock> clock(
      n7platform::ManualClock::SystemTimeOf(2026, 3, 1, 8, 0, 0));
  g_clock = clock.get();
  n7platform::SetClock(g_clock);
  return RUN_ALL_TESTS();
}
