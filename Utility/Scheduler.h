// The process-wide scheduler: calls client objects back at chosen times.
//
// A client derives from ASchedulerCallback, implements OnScheduledTask and schedules tasks on
// itself. A task is named by (this object, a context pointer the scheduler never dereferences, an
// id of the client's choosing); at most one task per name is pending, and scheduling a pending
// name again moves it to the new time. Times have a resolution of whole seconds.
//
// All callbacks run on one dispatch thread, started by the first scheduling call in the process
// and kept until the process ends, one at a time, in due-time order; tasks due in the same second
// run in the order of their callback object's address, then context address, then id. No lock of
// the scheduler is held while a callback runs, so a callback may schedule and deschedule tasks,
// its own included. A callback must not let an exception escape.
//
// Every operation may be called from any thread. Destroying a callback object removes its
// pending tasks but does not wait for a callback of it that is running at that moment: the client
// must make sure none is.
#pragma once

#include <string>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/kernel/N7DateTime.h"

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): protected on purpose, see below
class N7_EXPORT ASchedulerCallback {
 public:
  // A copy of the description given at construction; it names this object in trace messages.
  std::string QueryDescription() const;

  // Runs the task at `time`; a time in the past, or an invalid time, runs it at once.
  void ScheduleTaskAt(void* context, unsigned long id, N7OS::CN7DateTime time);
  // Runs the task `seconds` from now; 0 or less runs it at once.
  void ScheduleTaskForSec(void* context, unsigned long id, int seconds);
  // Runs the task at the next multiple of `period` seconds counted from local midnight (a period
  // of 3600 runs it at the next full hour, even when called exactly on one). A period of 0 or less
  // does nothing.
  void ScheduleTaskForNextPeriodSec(void* context, unsigned long id, int period);
  // Runs the task now, but no sooner than `period` seconds after the due time of the previous
  // metered run of the same task; a call while the task is pending is ignored. The previous due
  // time is remembered for the life of the process, also across DescheduleTask.
  void ScheduleTaskMetered(void* context, unsigned long id, int period);

  // Removes the pending task (context, id), if any.
  void DescheduleTask(void* context, unsigned long id);
  // Removes every pending task of this object with this context.
  void DescheduleTasks(void* context);
  // Whether the task (context, id) is pending; a task whose callback is running is not.
  bool IsScheduled(void* context, unsigned long id);

 protected:
  explicit ASchedulerCallback(const char* description);
  // The description is converted to UTF-8.
  explicit ASchedulerCallback(const wchar_t* description);
  // Copies the description only: tasks belong to an object's address.
  ASchedulerCallback(const ASchedulerCallback& other);
  ASchedulerCallback& operator=(const ASchedulerCallback& other);
  // Removes every pending task of this object.
  // Protected: a callback object is destroyed through its own class, never through this base.
  virtual ~ASchedulerCallback();

  // The task callback, on the dispatch thread.
  virtual void OnScheduledTask(void* context, unsigned long id) = 0;

 private:
  friend class CScheduler;

  std::string m_description;
};
