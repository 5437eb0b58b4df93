// n7util demo, the scheduler: timed tasks on the process-wide dispatch thread, checked for order.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/Scheduler.h"
#include "n7utility/core/trace.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/N7DateTime.h"

namespace n7util {
namespace {

using SteadyClock = std::chrono::steady_clock;

// The scheduler step's tasks, all on one callback object and one context. Ids follow the order of
// scheduling. All are scheduled within one second, so each falls due exactly its delay after the
// first; tasks due in the same second run in id order.
enum TaskId : unsigned long {
  kAtOnce = 1,         // ScheduleTaskForSec 0
  kMetered,            // ScheduleTaskMetered, period 2: at once, then again from its callback
  kAfterOneSecond,     // ScheduleTaskForSec 1
  kAtTime,             // ScheduleTaskAt now + 2 s
  kDescheduled,        // ScheduleTaskForSec 2, descheduled at once: never runs
  kAfterThreeSeconds,  // ScheduleTaskForSec 3
};

constexpr int kMeteredPeriod = 2;
constexpr auto kSchedulerTimeout = std::chrono::seconds(30);

// The runs in the order they must come: the second metered run is due 2 s after the first, in
// the same second as kAtTime, and has the smaller id.
constexpr unsigned long kExpectedRuns[] = {kAtOnce,  kMetered, kAfterOneSecond,
                                           kMetered, kAtTime,  kAfterThreeSeconds};

const char* describe(unsigned long id) {
  switch (id) {
    case kAtOnce:
      return "at once";
    case kMetered:
      return "metered";
    case kAfterOneSecond:
      return "after 1 s";
    case kAtTime:
      return "at now + 2 s";
    case kDescheduled:
      return "descheduled";
    case kAfterThreeSeconds:
      return "after 3 s";
    default:
      return "unknown task";
  }
}

struct Run {
  unsigned long id;
  double seconds;  // since the tasks were scheduled
};

std::string format_run(const Run& run) {
  char line[96];
  std::snprintf(line, sizeof line, "  +%.2f s  task %lu ran (%s)", run.seconds, run.id,
                describe(run.id));
  return line;
}

// The callback object: records every run; the metered task meters itself once more from inside
// its first run.
class DemoTasks final : public ASchedulerCallback {
 public:
  DemoTasks() : ASchedulerCallback("n7util demo") {}

  void MarkStart() {
    std::lock_guard lock(mutex_);
    start_ = SteadyClock::now();
  }

  // Waits until more than `seen` runs are recorded or `deadline` passes; returns the runs so far.
  std::vector<Run> WaitForMoreThan(std::size_t seen, SteadyClock::time_point deadline) {
    std::unique_lock lock(mutex_);
    runs_changed_.wait_until(lock, deadline, [&] { return runs_.size() > seen; });
    return runs_;
  }

 protected:
  void OnScheduledTask(void* context, unsigned long id) override {
    bool first_metered_run = false;
    {
      std::lock_guard lock(mutex_);
      const std::chrono::duration<double> elapsed = SteadyClock::now() - start_;
      runs_.push_back({id, elapsed.count()});
      first_metered_run = id == kMetered && ++metered_runs_ == 1;
    }
    // The scheduler holds this run back until a period after the previous one was due.
    if (first_metered_run) ScheduleTaskMetered(context, kMetered, kMeteredPeriod);
    runs_changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable runs_changed_;
  SteadyClock::time_point start_;
  std::vector<Run> runs_;
  int metered_runs_ = 0;
};

// Turns the scheduler's trace topic up so that its trace lines show, unless the user chose the
// trace levels with N7_TRACE. (Nothing in this process changes the environment, so getenv is safe.)
void show_scheduler_trace(std::ostream& out) {
  if (std::getenv("N7_TRACE") != nullptr) {  // NOLINT(concurrency-mt-unsafe)
    out << "  trace levels as N7_TRACE sets them\n";
    return;
  }
  n7trace::get_trace_mgr().topic_handle("N7Scheduler", 0, 41)->topic->set_trace_level(61);
  const char* trace_file = std::getenv("N7_TRACE_FILE");  // NOLINT(concurrency-mt-unsafe)
  out << "  trace topic N7Scheduler at level 61, to "
      << (trace_file != nullptr ? trace_file : "standard error") << '\n';
}

// Returns once the scheduler's clock has moved to a new second (giving up after 1.5 s), so that
// what is scheduled next lands within one second.
void wait_for_next_second() {
  const N7OS::CN7DateTime start = N7OS::CN7DateTime::now();
  for (int i = 0; i < 300 && N7OS::CN7DateTime::now() == start; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

// Schedules the tasks, then says what it did (output could block, and every call must land in
// the same second); false when the descheduled task does not behave.
bool schedule_tasks(DemoTasks& tasks, void* context, std::ostream& out) {
  tasks.ScheduleTaskForSec(context, kAtOnce, 0);
  tasks.ScheduleTaskMetered(context, kMetered, kMeteredPeriod);
  tasks.ScheduleTaskForSec(context, kAfterOneSecond, 1);
  tasks.ScheduleTaskAt(context, kAtTime, N7OS::CN7DateTime::now().add_seconds(2));
  tasks.ScheduleTaskForSec(context, kDescheduled, 2);
  const bool was_scheduled = tasks.IsScheduled(context, kDescheduled);
  tasks.DescheduleTask(context, kDescheduled);
  const bool still_scheduled = tasks.IsScheduled(context, kDescheduled);
  tasks.ScheduleTaskForSec(context, kAfterThreeSeconds, 3);

  out << "  task 1: ScheduleTaskForSec(0): runs at once\n"
         "  task 2: ScheduleTaskMetered(period 2): runs at once; its callback meters it again,\n"
         "          and the scheduler holds that run back until 2 s after the first\n"
         "  task 3: ScheduleTaskForSec(1)\n"
         "  task 4: ScheduleTaskAt(now + 2 s)\n"
         "  task 5: ScheduleTaskForSec(2), then DescheduleTask before it is due: must never run\n"
         "  task 6: ScheduleTaskForSec(3)\n";
  if (!was_scheduled || still_scheduled) {
    print_error("scheduler: task 5 was " + std::string(was_scheduled ? "" : "not ") +
                "pending after scheduling and " + (still_scheduled ? "" : "not ") +
                "pending after descheduling");
    return false;
  }
  return true;
}

// Prints the runs as they come until all expected runs came; false on timeout.
bool await_runs(DemoTasks& tasks, std::ostream& out) {
  const auto deadline = SteadyClock::now() + kSchedulerTimeout;
  std::vector<Run> runs;
  while (runs.size() < std::size(kExpectedRuns)) {
    std::vector<Run> now = tasks.WaitForMoreThan(runs.size(), deadline);
    for (std::size_t i = runs.size(); i < now.size(); ++i) out << format_run(now[i]) << std::endl;
    if (now.size() == runs.size()) {
      print_error("scheduler: only " + std::to_string(runs.size()) + " of " +
                  std::to_string(std::size(kExpectedRuns)) + " runs within " +
                  std::to_string(kSchedulerTimeout.count()) + " s");
      return false;
    }
    runs = std::move(now);
  }
  for (std::size_t i = 0; i < runs.size(); ++i) {
    if (runs[i].id != kExpectedRuns[i]) {
      print_error("scheduler: run " + std::to_string(i + 1) + " was task " +
                  std::to_string(runs[i].id) + ", expected task " +
                  std::to_string(kExpectedRuns[i]));
      return false;
    }
  }
  return true;
}

}  // namespace

bool scheduler_step(std::ostream& out) {
  // Never destroyed: the last callback may still be returning when the step ends, and a callback
  // object must not be destroyed while one of its callbacks runs.
  static n7platform::NoDestructor<DemoTasks> tasks;
  static int context;  // names the tasks' context; the scheduler never dereferences it

  show_scheduler_trace(out);
  out << "  waiting for the clock's next second, to schedule all tasks within the same second\n";
  wait_for_next_second();
  tasks->MarkStart();
  if (!schedule_tasks(*tasks, &context, out)) return false;
  out << "  waiting for " << std::size(kExpectedRuns) << " runs (at most "
      << kSchedulerTimeout.count() << " s)" << std::endl;
  if (!await_runs(*tasks, out)) return false;
  out << "  all runs came in the expected order; task 5 never ran\n";
  return true;
}

}  // namespace n7util
