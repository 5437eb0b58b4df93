// The scheduler when its dispatch thread cannot start: a binary of its own, since the thread
// starts once per process, at the first scheduling call.
#include <gtest/gtest.h>

#include <latch>

#include "n7utility/Utility/Scheduler.h"
#include "n7utility/Utility/Scheduler_internal.h"

namespace {

class Counter : public ASchedulerCallback {
 public:
  explicit Counter(std::latch& ran) : ASchedulerCallback("start test"), ran_(ran) {}

 protected:
  void OnScheduledTask(void* /*context*/, unsigned long /*id*/) override { ran_.count_down(); }

 private:
  std::latch& ran_;
};

CWinThread* NoThread(AFX_THREADPROC /*proc*/, LPVOID /*param*/) { return nullptr; }

TEST(SchedulerStartTest, ATaskScheduledWhileTheThreadCannotStartRunsOnceItDoes) {
  std::latch ran(2);
  Counter counter(ran);
  int context = 0;
  n7utility::internal::SetSchedulerThreadStarter(&NoThread);
  counter.ScheduleTaskForSec(&context, 1, 0);
  EXPECT_TRUE(counter.IsScheduled(&context, 1));

  n7utility::internal::SetSchedulerThreadStarter(nullptr);
  counter.ScheduleTaskForSec(&context, 2, 0);
  ran.wait();  // both tasks: the first was kept for the thread the second call began
  EXPECT_FALSE(counter.IsScheduled(&context, 1));
}

}  // namespace
