// A pool of long-lived threads that the client makes, and hands out one idle thread on request.
//
// The pool creates no threads. A client derives its thread classes from APooledWorkerThread (a
// thread that sleeps on an event and runs one unit of work per Continue()) or from
// APooledInterfaceThread (a message-loop thread handed work as thread messages) and starts them;
// each thread registers itself with its pool as it starts, goes back on the pool's idle list
// whenever it has nothing to do, and leaves the pool as it ends.
//
// The protocol of a client: SelectThread(); for a worker, hand it its data and Continue(); for an
// interface thread, SetBusy(TRUE), post it a message, and have the thread SetBusy(FALSE) when it
// is done. The idle list is last in, first out, so the thread that went idle most recently (and
// whose stack is warmest) is selected first.
//
// The pool mutex guards both lists and is held only while they change, never while a thread
// works; the idle semaphore counts entries put on the idle list, and SelectThread takes mutex and
// semaphore in one wait so that the count and the list stay in step. Exceptions inside a thread's
// work never end the thread: they go to its OnException, whose base version deletes framework
// exceptions.
#pragma once

#include <atomic>
#include <list>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/framework/SyncObjects.h"
#include "n7utility/platform/kernel/Thread.h"

namespace n7utility::internal {

// The pool mutex: a CMutex that the thread-safety analysis knows as a lock.
class N7_EXPORT CAPABILITY("mutex") PoolMutex : public CMutex {
 public:
  void Acquire() ACQUIRE() { Lock(INFINITE); }
  void Release() RELEASE() { Unlock(); }
  // Tells the analysis that a wait for several objects at once took the mutex.
  void AssumeTaken() const ASSERT_CAPABILITY(this) {}
};

}  // namespace n7utility::internal

// What the pool sees of a pooled thread. Not deleted through this interface: its destructor is
// protected.
class N7_EXPORT APooledThread {
 public:
  virtual CWinThread* GetWinThread() = 0;
  // Tells the thread to end once its current unit of work is done.
  virtual void Quit() = 0;

 protected:
  APooledThread() = default;
  APooledThread(const APooledThread&) = default;
  APooledThread(APooledThread&&) = default;
  APooledThread& operator=(const APooledThread&) = default;
  APooledThread& operator=(APooledThread&&) = default;
  ~APooledThread() = default;
};

class N7_EXPORT CThreadPool {
 public:
  CThreadPool();
  // Shuts the pool down, waiting as long as it takes for its threads to end.
  virtual ~CThreadPool();
  CThreadPool(const CThreadPool&) = delete;
  CThreadPool& operator=(const CThreadPool&) = delete;

  // Registers `thread` (no duplicate check); it is not idle until released.
  virtual void AddThread(APooledThread* thread);
  // Takes `thread` off the idle list and out of the pool. The idle semaphore keeps its count, so
  // a later selection may find the list empty (see SelectThread).
  virtual void RemoveThread(APooledThread* thread);
  // Tells every registered thread to quit and forgets them all, then waits up to `timeout`
  // milliseconds (INFINITE: no limit) for them to end, in batches of MAXIMUM_WAIT_OBJECTS
  // sharing that time. Threads that do not end in time are not reported. A busy thread finishes
  // its unit of work first. The pool must not be asked to select afterwards.
  virtual void Shutdown(unsigned long timeout);
  // Takes the most recently released idle thread off the idle list. When none is idle at once,
  // calls SelectionFailure() (where a derived pool may start or release a thread) and waits up to
  // `timeout` milliseconds. Null on timeout, on a failed wait or when the pool mutex was
  // abandoned. Throws CInvalidArgException* when the semaphore had a count but the list was
  // empty (a thread removed while idle left its count behind).
  virtual APooledThread* SelectThread(unsigned long timeout);
  // Puts `thread` at the head of the idle list and counts it, unless it is there already.
  virtual void ReleaseThread(APooledThread* thread);

  // The number of registered threads, idle or busy.
  int QueryNumThreads() const;

 protected:
  // Called when a selection finds no idle thread at once; empty here.
  virtual void SelectionFailure();

 private:
  using ThreadList = std::list<APooledThread*>;

  DWORD WaitForIdleThread(unsigned long timeout);
  APooledThread* TakeIdleHead() REQUIRES(m_mutex);

  ThreadList m_allThreads GUARDED_BY(m_mutex);
  ThreadList m_idleThreads GUARDED_BY(m_mutex);
  mutable n7utility::internal::PoolMutex m_mutex;
  CSemaphore m_idleSemaphore;
};

// A pooled thread without a message loop: it waits on its wake event, and each Continue() makes
// it run OnWork() once. It joins its pool when its thread starts, returns to the idle list before
// every wait, and when it ends leaves the pool and deletes itself (through OnExit and Delete; an
// override of OnExit that does not call the base keeps the object). Create it with new; its thread
// owns it once started.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): deleted only through Delete()
class N7_EXPORT APooledWorkerThread : public APooledThread {
 public:
  CWinThread* GetWinThread() override;
  // Sets the quit flag and wakes the thread, which then ends without another OnWork().
  void Quit() override;

 protected:
  explicit APooledWorkerThread(CThreadPool& pool);
  // Leaves the pool if a thread was started. Protected: the worker is deleted through Delete(),
  // which a derived class may override with another way of freeing it.
  virtual ~APooledWorkerThread();

 public:
  // Begins the thread. FALSE, with the last error set and the worker left unstarted, when the
  // thread cannot be created.
  virtual BOOL Start(int priority = THREAD_PRIORITY_NORMAL, unsigned int stack_size = 0,
                     SECURITY_ATTRIBUTES* security = nullptr);
  // Wakes the thread for one unit of work.
  virtual void Continue();

 protected:
  // The thread's loop: OnEntry(), then passes of OnLoop(), a wait for the wake event and OnWork()
  // until the quit flag is set, then OnExit() of the last result. An exception ends only its pass
  // and goes to OnException. The exit code is the result of the last completed OnWork(), or of
  // OnEntry() if none completed.
  virtual unsigned int ThreadBody();
  // Registers with the pool; returns 0.
  virtual unsigned int OnEntry();
  // Returns the thread to the pool's idle list.
  virtual void OnLoop();
  // One unit of work.
  virtual unsigned int OnWork() = 0;
  // Leaves the pool and deletes the object; returns `exit_code`.
  virtual unsigned int OnExit(unsigned int exit_code);
  // A framework exception thrown by the work (deleted here), a not auto-deleting CComException
  // wrapping a COM error (valid only during the call), or null for any other exception.
  virtual void OnException(CException* exception);
  // Deletes the object.
  virtual void Delete();

  // The thread procedure: ThreadBody() of the worker given as `param`. An exception escaping it
  // ends the thread with 0xFFFFFFFF.
  static unsigned int ThreadEntry(void* param);

 private:
  CWinThread* m_pThread = nullptr;
  CThreadPool& m_pool;
  CEvent m_wakeEvent;
  // Set by Quit from any thread, read by the worker after it wakes.
  std::atomic<bool> m_quit = false;
};

// A pooled message-loop thread: work arrives as thread messages, and it counts as idle whenever
// its queue runs empty while it is not marked busy. It joins its pool in InitInstance and leaves it
// in ExitInstance; the object is deleted as its CWinThread's auto-delete setting says.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): deleted by its thread
class N7_EXPORT APooledInterfaceThread : public CWinThread, public APooledThread {
  DECLARE_DYNAMIC(APooledInterfaceThread)

 public:
  CWinThread* GetWinThread() override;
  // Posts WM_QUIT to the thread's queue.
  void Quit() override;

  BOOL InitInstance() override;
  // The message loop; an exception thrown by message handling goes to OnException and the loop
  // starts again.
  int Run() override;
  // At the first idle pass (count 0) of an idle spell, returns the thread to its pool unless it
  // is busy.
  BOOL OnIdle(LONG count) override;
  int ExitInstance() override;

  virtual void SetPool(CThreadPool& pool);
  // Busy keeps the thread off the idle list while its queue is empty. Any thread may set it.
  virtual void SetBusy(BOOL busy);
  BOOL IsBusy() const;

 protected:
  explicit APooledInterfaceThread(CThreadPool* pool = nullptr);
  // Protected: the framework deletes the thread object as its auto-delete setting says.
  ~APooledInterfaceThread() override;

  // As APooledWorkerThread::OnException.
  virtual void OnException(CException* exception);

 private:
  CThreadPool* m_pPool;
  std::atomic<BOOL> m_bBusy = FALSE;
};
