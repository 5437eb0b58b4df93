// The process-wide scheduler behind ASchedulerCallback.
//
// CScheduler keeps, under one re-entrant lock, the pending tasks (in run order and in identity
// order, see PendingTasks) and the metering table (by identity; the last metered due time of every
// identity ever metered). One dispatch thread, begun by the first scheduling call, sleeps on a wake
// event until the first task is due, then runs due tasks in run order with the lock released
// around each callback.

#include "n7utility/Utility/Scheduler.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <map>
#include <sstream>

#include "n7utility/Utility/PendingTasks_internal.h"
#include "n7utility/Utility/Scheduler_internal.h"
#include "n7utility/core/classic_stream.h"
#include "n7utility/core/text.h"
#include "n7utility/core/trace.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/framework/SyncObjects.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/N7DateTime.h"
#include "n7utility/platform/kernel/Thread.h"
#include "n7utility/platform/kernel/Time.h"

namespace {

using N7OS::CN7DateTime;
using n7utility::internal::IdentityOf;
using n7utility::internal::PendingTasks;
using n7utility::internal::TaskIdentity;
using n7utility::internal::TaskRecord;

constexpr char kSourceFile[] = "Utility/Scheduler";
constexpr std::int8_t kTraceLevel = 61;
constexpr int kTraceSubtype = 2;
// Waits are 32-bit millisecond counts; a task further ahead than the longest finite wait wakes
// the thread early, which then finds nothing due and waits again.
constexpr std::int64_t kLongestWaitMs = INFINITE - 1;

// The last metered due time of every identity ever metered.
using MeteringTable = std::map<TaskIdentity, CN7DateTime>;

std::atomic<n7utility::internal::SchedulerThreadStarter> g_threadStarter{nullptr};

CWinThread* BeginThread(AFX_THREADPROC proc, LPVOID param) { return AfxBeginThread(proc, param); }

// The pointer as the trace messages show it.
std::string PointerText(const void* pointer) {
  n7core::ClassicOStringStream text;
  text << pointer;
  return text.str();
}

}  // namespace

// The scheduler itself, one per process; reached only through ASchedulerCallback.
class CScheduler {
 public:
  CScheduler();
  CScheduler(const CScheduler&) = delete;
  CScheduler& operator=(const CScheduler&) = delete;

  void ScheduleTask(const TaskRecord& task) EXCLUDES(m_lock);
  // `task.due` is the current time.
  void ScheduleTaskMetered(const TaskRecord& task, int period) EXCLUDES(m_lock);
  bool IsScheduled(const TaskRecord& task) EXCLUDES(m_lock);
  void DescheduleTask(const TaskRecord& task) EXCLUDES(m_lock);
  // Every pending task with the record's callback and context.
  void DescheduleTasks(const TaskRecord& task) EXCLUDES(m_lock);
  // Every pending task of the callback object.
  void DescheduleTasks(ASchedulerCallback* callback) EXCLUDES(m_lock);

 private:
  // Scheduling proper, for callers that hold the lock already. The lock is re-entrant, but nested
  // use goes through this so the thread-safety analysis can follow it.
  void ScheduleTaskLocked(const TaskRecord& task) REQUIRES(m_lock);
  void TraceDeschedule(const TaskRecord& task) REQUIRES(m_lock);

  static UINT ThreadEntry(LPVOID self);
  UINT MemberThread() EXCLUDES(m_lock);

  bool StartThread() REQUIRES(m_lock);
  DWORD NextWaitMilliseconds() REQUIRES(m_lock);
  void RunDueTasks() REQUIRES(m_lock);
  // Removes every pending task from the first one not less than `from` while `same_group` holds,
  // in identity order.
  template <typename SameGroup>
  void DescheduleRange(const TaskIdentity& from, SameGroup same_group) REQUIRES(m_lock);

  bool m_started GUARDED_BY(m_lock) = false;
  bool m_wakePending GUARDED_BY(m_lock) = false;
  HANDLE m_wakeEvent GUARDED_BY(m_lock) = nullptr;
  CCriticalSection m_lock;
  PendingTasks m_pending GUARDED_BY(m_lock);
  MeteringTable m_metering GUARDED_BY(m_lock);
  n7trace::intTopicHdl* const m_topic;
};

namespace {

// The dispatch thread outlives static destruction, so the scheduler is never destroyed.
CScheduler& TheScheduler() {
  static n7platform::NoDestructor<CScheduler> scheduler;
  return *scheduler;
}

// Built while the library loads, so its trace topic exists from then on. Running out of memory
// this early ends the process, which is all that could be done anyway.
[[maybe_unused]] const CScheduler& g_schedulerAtLoad = TheScheduler();  // NOLINT(cert-err58-cpp)

}  // namespace

CScheduler::CScheduler() : m_topic(n7trace::get_trace_mgr().topic_handle("N7Scheduler", 0, 41)) {}

void CScheduler::ScheduleTask(const TaskRecord& task) {
  n7platform::CriticalSectionLock lock(m_lock);
  ScheduleTaskLocked(task);
}

void CScheduler::ScheduleTaskLocked(const TaskRecord& task) {
  // A task is queued even when the dispatch thread cannot start now: a later scheduling call
  // starts it, and it then runs what is due.
  if (!m_started) StartThread();
  const bool wake = !m_wakePending && (m_pending.empty() || task.due < m_pending.First().due);
  if (m_pending.Insert(task)) TraceDeschedule(task);
  // Fixed: the trace names ScheduleTask(), the entry point callers know, not this helper.
  N7_TRACE_MESSAGE(m_topic, kTraceLevel, kTraceSubtype, "CScheduler::ScheduleTask()", kSourceFile,
                   "ScheduleTaskAt({},{},{}) in {} sec")
      << task.callback->m_description << task.context << task.id << (task.due - CN7DateTime::now());
  if (wake && m_started) {
    m_wakePending = true;
    SetEvent(m_wakeEvent);
  }
}

// Creates the wake event and begins the dispatch thread. On failure nothing is left started, so
// the next scheduling call tries again.
bool CScheduler::StartThread() {
  if (m_wakeEvent == nullptr) {
    m_wakeEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (m_wakeEvent == nullptr) return false;
  }
  const n7utility::internal::SchedulerThreadStarter starter = g_threadStarter.load();
  m_started =
      (starter != nullptr ? starter : &BeginThread)(&CScheduler::ThreadEntry, this) != nullptr;
  return m_started;
}

void CScheduler::ScheduleTaskMetered(const TaskRecord& task, int period) {
  n7platform::CriticalSectionLock lock(m_lock);
  const TaskIdentity identity = IdentityOf(task);
  if (m_pending.Contains(identity)) return;
  auto [last_due, is_new] = m_metering.try_emplace(identity, task.due);
  TaskRecord next = task;
  if (!is_new) {
    next.due = last_due->second;
    next.due.add_seconds(period);
    if (next.due < task.due) next.due = task.due;
    last_due->second = next.due;
  }
  ScheduleTaskLocked(next);
}

bool CScheduler::IsScheduled(const TaskRecord& task) {
  n7platform::CriticalSectionLock lock(m_lock);
  return m_pending.Contains(IdentityOf(task));
}

void CScheduler::DescheduleTask(const TaskRecord& task) {
  n7platform::CriticalSectionLock lock(m_lock);
  if (m_pending.Erase(IdentityOf(task))) TraceDeschedule(task);
}

void CScheduler::TraceDeschedule(const TaskRecord& task) {
  N7_TRACE_MESSAGE(m_topic, kTraceLevel, kTraceSubtype, "CScheduler::DescheduleTask", kSourceFile,
                   "{}")
      << "DescheduleTask(" + task.callback->m_description + "," + PointerText(task.context) + "," +
             std::to_string(task.id) + ")";
}

void CScheduler::DescheduleTasks(const TaskRecord& task) {
  n7platform::CriticalSectionLock lock(m_lock);
  N7_TRACE_MESSAGE(m_topic, kTraceLevel, kTraceSubtype, "CScheduler::DescheduleTasks", kSourceFile,
                   "{}")
      << "DescheduleTasks(" + task.callback->m_description + "," + PointerText(task.context) + ")";
  const TaskIdentity from = IdentityOf(task.callback, task.context, 0);
  DescheduleRange(from, [&from](const TaskIdentity& found) {
    return found.callback == from.callback && found.context == from.context;
  });
}

void CScheduler::DescheduleTasks(ASchedulerCallback* callback) {
  n7platform::CriticalSectionLock lock(m_lock);
  N7_TRACE_MESSAGE(m_topic, kTraceLevel, kTraceSubtype, "CScheduler::DescheduleTasks", kSourceFile,
                   "{}")
      << "DescheduleTask(" + callback->m_description + ")";
  const TaskIdentity from = IdentityOf(callback, nullptr, 0);
  DescheduleRange(from,
                  [&from](const TaskIdentity& found) { return found.callback == from.callback; });
}

template <typename SameGroup>
void CScheduler::DescheduleRange(const TaskIdentity& from, SameGroup same_group) {
  for (const TaskRecord* found = m_pending.LowerBound(from);
       found != nullptr && same_group(IdentityOf(*found)); found = m_pending.LowerBound(from)) {
    TraceDeschedule(*found);
    m_pending.Erase(IdentityOf(*found));
  }
}

UINT CScheduler::ThreadEntry(LPVOID self) { return static_cast<CScheduler*>(self)->MemberThread(); }

UINT CScheduler::MemberThread() {
  for (;;) {
    m_lock.Lock();
    const DWORD wait = NextWaitMilliseconds();
    const HANDLE wake_event = m_wakeEvent;
    m_lock.Unlock();
    if (WaitForSingleObject(wake_event, wait) == WAIT_FAILED) return 0;
    m_lock.Lock();
    ResetEvent(m_wakeEvent);
    m_wakePending = false;
    RunDueTasks();
    m_lock.Unlock();
  }
}

DWORD CScheduler::NextWaitMilliseconds() {
  if (m_pending.empty()) return INFINITE;
  const std::int64_t seconds = m_pending.First().due - CN7DateTime::now();
  if (seconds <= 0) return 0;
  if (seconds > kLongestWaitMs / 1000) return static_cast<DWORD>(kLongestWaitMs);
  return static_cast<DWORD>(seconds * 1000);
}

void CScheduler::RunDueTasks() {
  while (!m_pending.empty() && !(CN7DateTime::now() < m_pending.First().due)) {
    const TaskRecord task = m_pending.PopFirst();
    // Fixed: the trace names the dispatch thread's function, MemberThread(), not this helper.
    N7_TRACE_MESSAGE(m_topic, kTraceLevel, kTraceSubtype, "CScheduler::MemberThread()", kSourceFile,
                     "Running({},{},{})")
        << task.callback->m_description << task.context << task.id;
    m_lock.Unlock();
    task.callback->OnScheduledTask(task.context, task.id);
    m_lock.Lock();
  }
}

namespace {

TaskRecord RecordOf(ASchedulerCallback* callback, void* context, unsigned long id,
                    CN7DateTime due = CN7DateTime()) {
  return TaskRecord{callback, context, id, due};
}

}  // namespace

ASchedulerCallback::ASchedulerCallback(const char* description)
    : m_description(description != nullptr ? description : "") {}

ASchedulerCallback::ASchedulerCallback(const wchar_t* description)
    : m_description(n7core::to_string(description)) {}

ASchedulerCallback::ASchedulerCallback(const ASchedulerCallback& other)
    : m_description(other.m_description) {}

ASchedulerCallback& ASchedulerCallback::operator=(const ASchedulerCallback& other) {
  m_description = other.m_description;
  return *this;
}

ASchedulerCallback::~ASchedulerCallback() { TheScheduler().DescheduleTasks(this); }

std::string ASchedulerCallback::QueryDescription() const { return m_description; }

void ASchedulerCallback::ScheduleTaskAt(void* context, unsigned long id, N7OS::CN7DateTime time) {
  TheScheduler().ScheduleTask(RecordOf(this, context, id, time));
}

void ASchedulerCallback::ScheduleTaskForSec(void* context, unsigned long id, int seconds) {
  CN7DateTime due = CN7DateTime::now();
  if (seconds > 0) due.add_seconds(seconds);
  TheScheduler().ScheduleTask(RecordOf(this, context, id, due));
}

void ASchedulerCallback::ScheduleTaskForNextPeriodSec(void* context, unsigned long id, int period) {
  if (period <= 0) return;
  SYSTEMTIME local;
  GetLocalTime(&local);
  const int seconds_since_midnight = local.wHour * 3600 + local.wMinute * 60 + local.wSecond;
  ScheduleTaskForSec(context, id, period - seconds_since_midnight % period);
}

void ASchedulerCallback::ScheduleTaskMetered(void* context, unsigned long id, int period) {
  TheScheduler().ScheduleTaskMetered(RecordOf(this, context, id, CN7DateTime::now()), period);
}

void ASchedulerCallback::DescheduleTask(void* context, unsigned long id) {
  TheScheduler().DescheduleTask(RecordOf(this, context, id));
}

void ASchedulerCallback::DescheduleTasks(void* context) {
  TheScheduler().DescheduleTasks(RecordOf(this, context, 0));
}

bool ASchedulerCallback::IsScheduled(void* context, unsigned long id) {
  return TheScheduler().IsScheduled(RecordOf(this, context, id));
}

void n7utility::internal::SetSchedulerThreadStarter(SchedulerThreadStarter starter) {
  g_threadStarter.store(starter);
}
