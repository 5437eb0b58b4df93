// A program outside the project: includes the library's umbrella header, schedules one task on
// the process-wide scheduler and waits for it to run. Prints OK when it did.
#include <n7utility.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

namespace {

constexpr unsigned long kTaskId = 1;

class OneTask final : public ASchedulerCallback {
 public:
  OneTask() : ASchedulerCallback("install consumer") {}

  bool WaitUntilRun(std::chrono::seconds timeout) {
    std::unique_lock lock(mutex_);
    return ran_changed_.wait_for(lock, timeout, [this] { return ran_; });
  }

 protected:
  void OnScheduledTask(void* /*context*/, unsigned long id) override {
    std::lock_guard lock(mutex_);
    ran_ = id == kTaskId;
    ran_changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ran_changed_;
  bool ran_ = false;
};

}  // namespace

int main() {
  // Never destroyed: when main wakes up the callback may not have returned yet, and a callback
  // object must not be destroyed while its callback runs.
  static OneTask& task = *new OneTask;  // NOLINT(cppcoreguidelines-owning-memory)
  static int context;

  task.ScheduleTaskForSec(&context, kTaskId, 0);
  if (!task.WaitUntilRun(std::chrono::seconds(30))) {
    std::fputs("consumer: the task did not run within 30 s\n", stderr);
    return 1;
  }
  std::puts("OK");
  return 0;
}
