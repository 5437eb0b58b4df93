#include "n7utility/platform/kernel/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <memory>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"
#include "n7utility/platform/kernel/Thread_internal.h"

namespace n7platform::internal {
namespace {

// Guards what threads and their creators hand each other (below). Taken to create, start, end,
// suspend and resume threads, never by a wait.
ServiceMutex& ThreadsLock() {
  static NoDestructor<ServiceMutex> lock;
  return *lock;
}

// The kernel object of a thread, signalled when its procedure returns. It also carries what the
// creator and the new thread hand each other: the thread may outlive its CWinThread and the
// CWinThread may outlive the thread, so neither keeps this state.
class ThreadObject final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kThread;

  ThreadObject() : KernelObject(kKind) {}

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(lock_) { return ended_; }
  bool Acquire(const WaitingThread& /*thread*/) override REQUIRES(lock_) { return false; }

  void End(UINT code) {
    {
      ObjectGuard guard(lock_);
      exit_code_ = code;
      ended_ = true;
      SatisfyWaiters();
    }
    UnparkPending();
  }

  UINT ExitCode() const {
    ObjectGuard guard(lock_);
    return exit_code_;
  }

  CWinThread* owner GUARDED_BY(ThreadsLock()) = nullptr;  // null once the CWinThread is deleted
  DWORD suspend_count GUARDED_BY(ThreadsLock()) = 0;
  int priority GUARDED_BY(ThreadsLock()) = THREAD_PRIORITY_NORMAL;
  DWORD id GUARDED_BY(ThreadsLock()) = 0;
  bool started GUARDED_BY(ThreadsLock()) = false;
  bool running GUARDED_BY(ThreadsLock()) = false;  // past its suspensions
  // Signalled when `started` is set and when `suspend_count` drops to 0.
  std::condition_variable changed;

 private:
  bool ended_ GUARDED_BY(lock_) = false;
  UINT exit_code_ GUARDED_BY(lock_) = STILL_ACTIVE;
};

// Threads begun and not finished, and how AwaitLiveThreadCount learns that the count dropped.
struct LiveThreads {
  std::size_t count GUARDED_BY(ThreadsLock()) = 0;
  std::condition_variable dropped;
};

LiveThreads& Live() {
  static NoDestructor<LiveThreads> live;
  return *live;
}

thread_local CWinThread* t_current_thread = nullptr;

// A worker runs its procedure; a message-loop thread its instance and its loop.
UINT RunThread(CWinThread& thread, AFX_THREADPROC proc, LPVOID param) {
  if (proc != nullptr) return proc(param);
  const int code = thread.InitInstance() ? thread.Run() : thread.ExitInstance();
  return static_cast<UINT>(code);
}

void* ThreadMain(void* argument) {
  const std::shared_ptr<ThreadObject> self = [argument] {
    std::unique_ptr<std::shared_ptr<ThreadObject>> start(
        static_cast<std::shared_ptr<ThreadObject>*>(argument));
    return std::move(*start);
  }();

  CWinThread* thread = nullptr;
  AFX_THREADPROC proc = nullptr;
  LPVOID param = nullptr;
  // The queue exists before the creator learns the thread's id.
  CreateMessageQueue();
  {
    ServiceGuard guard(ThreadsLock());
    thread = self->owner;
    proc = thread->m_pfnThreadProc;
    param = thread->m_pThreadParams;
    self->id = GetCurrentThreadId();
    self->started = true;
    self->changed.notify_all();
    while (self->suspend_count > 0) self->changed.wait(guard.lock());
    self->running = true;
  }
  t_current_thread = thread;

  const UINT exit_code = RunThread(*thread, proc, param);

  // Once the object is signalled, a CWinThread that does not delete itself may be deleted by
  // whoever waited for it, so decide about it before.
  CWinThread* to_delete = nullptr;
  {
    ServiceGuard guard(ThreadsLock());
    if (self->owner != nullptr && self->owner->m_bAutoDelete) to_delete = self->owner;
  }
  DestroyMessageQueue();
  // Mutexes are abandoned before the thread counts as ended, so that whoever waited for the
  // thread finds them abandoned already.
  AbandonMutexesOfThisThread();
  self->End(exit_code);
  delete to_delete;
  t_current_thread = nullptr;
  ServiceGuard guard(ThreadsLock());
  --Live().count;
  Live().dropped.notify_all();
  return nullptr;
}

// Starts a detached pthread running ThreadMain for `object`.
bool StartThread(const std::shared_ptr<ThreadObject>& object, UINT stack_size) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (stack_size != 0) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t minimum = static_cast<std::size_t>(PTHREAD_STACK_MIN);
    const std::size_t size = (std::max<std::size_t>(stack_size, minimum) + page - 1) / page * page;
    pthread_attr_setstacksize(&attributes, size);
  }
  auto* argument = new std::shared_ptr<ThreadObject>(object);
  pthread_t thread;
  const int error = pthread_create(&thread, &attributes, ThreadMain, argument);
  pthread_attr_destroy(&attributes);
  if (error != 0) delete argument;
  return error == 0;
}

bool IsPriorityLevel(int priority) {
  switch (priority) {
    case THREAD_PRIORITY_IDLE:
    case THREAD_PRIORITY_LOWEST:
    case THREAD_PRIORITY_BELOW_NORMAL:
    case THREAD_PRIORITY_NORMAL:
    case THREAD_PRIORITY_ABOVE_NORMAL:
    case THREAD_PRIORITY_HIGHEST:
    case THREAD_PRIORITY_TIME_CRITICAL:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::size_t LiveThreadCount() {
  ServiceGuard guard(ThreadsLock());
  return Live().count;
}

bool AwaitLiveThreadCount(std::size_t count, std::chrono::milliseconds limit) {
  ServiceGuard guard(ThreadsLock());
  return Live().dropped.wait_for(guard.lock(), limit, [count] {
    ThreadsLock().AssertHeld();
    return Live().count <= count;
  });
}

}  // namespace n7platform::internal

using n7platform::internal::ServiceGuard;
using n7platform::internal::ThreadObject;
using n7platform::internal::ThreadsLock;

struct CWinThread::State {
  std::shared_ptr<ThreadObject> object;
};

CWinThread::CWinThread() = default;

CWinThread::CWinThread(AFX_THREADPROC proc, LPVOID param)
    : m_pfnThreadProc(proc), m_pThreadParams(param) {}

CWinThread::~CWinThread() {
  if (state_ != nullptr) {
    ServiceGuard guard(ThreadsLock());
    state_->object->owner = nullptr;
  }
  if (m_hThread != nullptr) CloseHandle(m_hThread);
  delete state_;
}

BOOL CWinThread::CreateThread(DWORD flags, UINT stack_size, LPSECURITY_ATTRIBUTES /*security*/) {
  // A second thread per object is not allowed.
  if (state_ != nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  auto object = std::make_shared<ThreadObject>();
  HANDLE handle = n7platform::internal::InsertHandle(object);
  if (handle == nullptr) return FALSE;
  ServiceGuard guard(ThreadsLock());
  object->owner = this;
  // One suspension more than asked for holds the thread until this object is filled in: its
  // procedure may read it, and an auto-deleting thread may delete it as soon as it ends.
  object->suspend_count = (flags & CREATE_SUSPENDED) != 0 ? 2 : 1;
  if (!n7platform::internal::StartThread(object, stack_size)) {
    n7platform::internal::RemoveHandle(handle);
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  ++n7platform::internal::Live().count;
  object->changed.wait(guard.lock(), [&] {
    ThreadsLock().AssertHeld();
    return object->started;
  });
  m_hThread = handle;
  m_nThreadID = object->id;
  state_ = new State{object};
  if (--object->suspend_count == 0) object->changed.notify_all();
  return TRUE;
}

DWORD CWinThread::ResumeThread() {
  if (state_ == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return static_cast<DWORD>(-1);
  }
  ServiceGuard guard(ThreadsLock());
  ThreadObject& object = *state_->object;
  const DWORD previous = object.suspend_count;
  if (previous > 0 && --object.suspend_count == 0) object.changed.notify_all();
  return previous;
}

DWORD CWinThread::SuspendThread() {
  if (state_ == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return static_cast<DWORD>(-1);
  }
  ServiceGuard guard(ThreadsLock());
  ThreadObject& object = *state_->object;
  if (object.running) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return static_cast<DWORD>(-1);
  }
  if (object.suspend_count >= MAXIMUM_SUSPEND_COUNT) {
    SetLastError(ERROR_SIGNAL_REFUSED);
    return static_cast<DWORD>(-1);
  }
  return object.suspend_count++;
}

int CWinThread::GetThreadPriority() {
  if (state_ == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return THREAD_PRIORITY_ERROR_RETURN;
  }
  ServiceGuard guard(ThreadsLock());
  return state_->object->priority;
}

BOOL CWinThread::SetThreadPriority(int priority) {
  if (state_ == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (!n7platform::internal::IsPriorityLevel(priority)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  ServiceGuard guard(ThreadsLock());
  state_->object->priority = priority;
  return TRUE;
}

IMPLEMENT_DYNAMIC(CWinThread, CObject)

namespace n7platform::internal {
namespace {

// Creates `thread`'s thread with its priority; it runs at once unless CREATE_SUSPENDED is asked.
CWinThread* BeginThread(std::unique_ptr<CWinThread> thread, int priority, UINT stack_size,
                        DWORD flags, LPSECURITY_ATTRIBUTES security) {
  if (!thread->CreateThread(flags | CREATE_SUSPENDED, stack_size, security)) return nullptr;
  thread->SetThreadPriority(priority);
  // Once resumed, an auto-deleting thread may end and delete itself at any moment.
  CWinThread* started = thread.release();
  if ((flags & CREATE_SUSPENDED) == 0) started->ResumeThread();
  return started;
}

}  // namespace
}  // namespace n7platform::internal

CWinThread* AfxBeginThread(AFX_THREADPROC proc, LPVOID param, int priority, UINT stack_size,
                           DWORD flags, LPSECURITY_ATTRIBUTES security) {
  return n7platform::internal::BeginThread(std::make_unique<CWinThread>(proc, param), priority,
                                           stack_size, flags, security);
}

CWinThread* AfxBeginThread(CRuntimeClass* thread_class, int priority, UINT stack_size, DWORD flags,
                           LPSECURITY_ATTRIBUTES security) {
  CObject* object = thread_class != nullptr ? thread_class->CreateObject() : nullptr;
  CWinThread* thread = DYNAMIC_DOWNCAST(CWinThread, object);
  if (thread == nullptr) {
    delete object;
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return n7platform::internal::BeginThread(std::unique_ptr<CWinThread>(thread), priority,
                                           stack_size, flags, security);
}

BOOL CWinThread::PostThreadMessage(UINT message, WPARAM wparam, LPARAM lparam) {
  return PostThreadMessageW(m_nThreadID, message, wparam, lparam);
}

BOOL CWinThread::InitInstance() { return FALSE; }

int CWinThread::Run() {
  bool idle = true;
  LONG idle_count = 0;
  for (;;) {
    while (idle && !PeekMessageW(&m_msgCur, nullptr, 0, 0, PM_NOREMOVE)) {
      if (!OnIdle(idle_count++)) idle = false;
    }
    do {
      if (!PumpMessage()) return ExitInstance();
      if (IsIdleMessage(&m_msgCur)) {
        idle = true;
        idle_count = 0;
      }
    } while (PeekMessageW(&m_msgCur, nullptr, 0, 0, PM_NOREMOVE));
  }
}

BOOL CWinThread::PreTranslateMessage(MSG* /*msg*/) { return FALSE; }

BOOL CWinThread::PumpMessage() {
  if (!GetMessageW(&m_msgCur, nullptr, 0, 0)) return FALSE;
  // With no windows to dispatch to, a message nobody handled is dropped.
  PreTranslateMessage(&m_msgCur);
  return TRUE;
}

BOOL CWinThread::OnIdle(LONG count) { return count < 0 ? TRUE : FALSE; }

BOOL CWinThread::IsIdleMessage(MSG* /*msg*/) { return TRUE; }

int CWinThread::ExitInstance() { return static_cast<int>(m_msgCur.wParam); }

CWinThread* AfxGetThread() { return n7platform::internal::t_current_thread; }

BOOL GetExitCodeThread(HANDLE thread, LPDWORD exit_code) {
  n7platform::internal::ObjectRef ref;
  auto* object = n7platform::internal::FindObjectOf<ThreadObject>(
      thread, ref, n7platform::internal::FindObjectForCall);
  if (object == nullptr) return FALSE;
  *exit_code = object->ExitCode();
  return TRUE;
}

DWORD GetCurrentThreadId() {
  thread_local const auto id = static_cast<DWORD>(gettid());
  return id;
}
