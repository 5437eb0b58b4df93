// The machinery behind the kernel objects, shared by the files of the platform layer that define
// kinds of objects (events, threads, ...) and by the clocks that put waiting threads to sleep.
//
// One process-wide kernel lock guards the state of every kernel object, the handle table and the
// manual clock. Holding one lock for all of them is what lets a wait for several objects check and
// take them all at once, and lets a signaller complete the waits it satisfies before anyone else
// can look at the object.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "platform/Clock.h"
#include "platform/KernelObjects.h"
#include "platform/thread_annotations.h"
#include "platform/windows_types.h"

namespace n7platform::internal {

// The kernel lock: a std::mutex (clocks sleep on it with std::condition_variable) that remembers
// whether the calling thread holds it, so that a clock called both from waits (lock held) and from
// the time functions (lock not held) can tell which case it is in.
class CAPABILITY("mutex") KernelMutex {
 public:
  std::mutex& native() { return mutex_; }
  bool HeldByThisThread() const { return held_; }
  // Tells the analysis that the caller holds the lock (a clock's Sleep gets it as a unique_lock).
  void AssertHeld() const ASSERT_CAPABILITY(this) {}

 private:
  friend class KernelGuard;
  std::mutex mutex_;
  static thread_local bool held_;
};

KernelMutex& KernelLock();

// Holds the kernel lock for a scope. lock() is what a clock's Sleep and condition variables need.
//
// Threads woken while the lock is held are notified only after it is released (see
// WakeAfterUnlock), so that a woken thread does not run straight into the lock its waker still
// holds.
class SCOPED_CAPABILITY KernelGuard {
 public:
  KernelGuard() ACQUIRE(KernelLock());
  ~KernelGuard() RELEASE();
  KernelGuard(const KernelGuard&) = delete;
  KernelGuard& operator=(const KernelGuard&) = delete;

  std::unique_lock<std::mutex>& lock() { return lock_; }

 private:
  friend void WakeAfterUnlock(std::shared_ptr<Sleeper> sleeper);

  std::unique_lock<std::mutex> lock_;
  std::vector<std::shared_ptr<Sleeper>> wake_after_unlock_;
};

// Notifies `sleeper` once the calling thread releases the kernel lock. The sleeper is kept alive
// until then, since the thread it wakes may return from its wait before the notification.
void WakeAfterUnlock(std::shared_ptr<Sleeper> sleeper) REQUIRES(KernelLock());

// One call of WaitForSingleObject / WaitForMultipleObjects in progress (defined by the wait
// engine).
struct Waiter;

// Base of every kind of kernel object. A kind says when a wait by a given thread is satisfied and
// what taking the object does; the base keeps the threads waiting on it.
class KernelObject {
 public:
  KernelObject() = default;
  virtual ~KernelObject() = default;
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;

  // Whether a wait by `thread` would be satisfied now.
  virtual bool IsSignalledFor(DWORD thread) const REQUIRES(KernelLock()) = 0;
  // The side effect of a successful wait by `thread` (an auto-reset event resets, ...). Returns
  // true when the object was abandoned, so that the wait reports WAIT_ABANDONED.
  virtual bool Acquire(DWORD thread) REQUIRES(KernelLock()) = 0;

  void AddWaiter(Waiter* waiter) REQUIRES(KernelLock());
  void RemoveWaiter(Waiter* waiter) REQUIRES(KernelLock());

 protected:
  // To be called whenever the object may have become signalled: completes, oldest first, every
  // wait on it that can be satisfied now, and wakes those threads. A wait completed here has
  // already taken its objects, so it succeeds even if the object is non-signalled again by the
  // time the thread runs.
  void SatisfyWaiters() REQUIRES(KernelLock());

 private:
  std::vector<Waiter*> waiters_ GUARDED_BY(KernelLock());
};

// Sets ERROR_NOT_SUPPORTED and returns true when `name` is not null: objects are unnamed.
bool RefuseName(LPCWSTR name);

// Makes the calling thread abandon the mutexes it still owns when it ends. Called by every wait
// and by a creation that takes ownership, on the thread that will own the mutex.
void WatchThreadExit();

// Abandons every mutex that `thread` owns: each becomes free, and the next wait that takes it
// reports WAIT_ABANDONED.
void AbandonMutexesOf(DWORD thread) REQUIRES(KernelLock());

// Enters `object` in the handle table. Null with ERROR_NOT_ENOUGH_MEMORY when the table is full.
HANDLE InsertHandle(std::shared_ptr<KernelObject> object) REQUIRES(KernelLock());

// The object behind `handle`; null with ERROR_INVALID_HANDLE for a closed, foreign or null handle.
std::shared_ptr<KernelObject> FindObject(HANDLE handle) REQUIRES(KernelLock());

// The object behind `handle` if it is a T; null with ERROR_INVALID_HANDLE otherwise. Valid while
// the kernel lock is held.
template <typename T>
T* FindObjectOf(HANDLE handle) REQUIRES(KernelLock()) {
  auto* object = dynamic_cast<T*>(FindObject(handle).get());
  if (object == nullptr) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

// Removes `handle` from the table and returns its object (destroy it after releasing the lock);
// null with ERROR_INVALID_HANDLE when the handle is not valid.
std::shared_ptr<KernelObject> RemoveHandle(HANDLE handle) REQUIRES(KernelLock());

// How many handles are open in the process: a test's check that nothing leaks.
std::size_t LiveHandleCount() REQUIRES(KernelLock());

// Waits, as WaitForMultipleObjects does, for kernel objects that need no handle (a thread's
// message queue, ...). Returns with the kernel lock still held, so the caller can take from an
// object what the wait found there before anyone else can.
DWORD WaitForObjects(std::span<const std::shared_ptr<KernelObject>> objects, bool wait_all,
                     DWORD milliseconds, KernelGuard& guard) REQUIRES(KernelLock());

// Uninstalls `clock` if it is the installed clock (a clock being destroyed calls this).
void ForgetClock(Clock* clock);

}  // namespace n7platform::internal
