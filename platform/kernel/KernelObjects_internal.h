// The machinery behind the kernel objects, shared by the files of the platform layer that define
// kinds of objects (events, threads, ...).
//
// Every kernel object guards its own state with its own lock; nothing is shared between unrelated
// objects. A wait for several objects takes their locks in one global order (by address), which is
// what lets it check and take them all at once without deadlock. docs/wait-engine.md explains the
// protocol between waiting threads and the threads that signal objects.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/kernel/Clock.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace n7platform::internal {

// The lock of one kernel object. It is held for a few instructions at a time and never across a
// sleep, so a thread that finds it taken spins, yielding the processor after a while, instead of
// parking; unlocking is a plain store.
class CAPABILITY("mutex") ObjectLock {
 public:
  void lock() ACQUIRE() {
    while (flag_.exchange(true, std::memory_order_acquire)) WaitUntilFree();
  }
  bool try_lock() TRY_ACQUIRE(true) {
    return !flag_.load(std::memory_order_relaxed) &&
           !flag_.exchange(true, std::memory_order_acquire);
  }
  void unlock() RELEASE() { flag_.store(false, std::memory_order_release); }
  // Tells the analysis that the caller holds the lock (taken as part of a set, see LockAll).
  void AssertHeld() const ASSERT_CAPABILITY(this) {}

 private:
  void WaitUntilFree() const;

  std::atomic<bool> flag_{false};
};

// Holds an ObjectLock for a scope.
class SCOPED_CAPABILITY ObjectGuard {
 public:
  explicit ObjectGuard(ObjectLock& lock) ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~ObjectGuard() RELEASE() { lock_.unlock(); }
  ObjectGuard(const ObjectGuard&) = delete;
  ObjectGuard& operator=(const ObjectGuard&) = delete;

 private:
  ObjectLock& lock_;
};

// The mutexes a thread owns, so that its end can abandon them (defined with the mutexes).
class OwnedMutexes;

// The thread on whose behalf an object is taken: the waiting thread, whoever completes its wait.
struct WaitingThread {
  DWORD id = 0;
  OwnedMutexes* owned = nullptr;
};

// The calling thread as a WaitingThread. It also makes the thread abandon the mutexes it still
// owns when it ends, so every wait and every creation that takes ownership calls it.
WaitingThread ThisWaitingThread();

// Abandons every mutex the calling thread owns: each becomes free, and the next wait that takes it
// reports WAIT_ABANDONED.
void AbandonMutexesOfThisThread();

// One call of WaitForSingleObject / WaitForMultipleObjects in progress (defined by the wait
// engine).
struct Waiter;

// What an object is, so that a handle can be checked for the kind a function expects without a
// dynamic_cast.
enum class ObjectKind { kEvent, kMutex, kSemaphore, kThread, kChangeNotification, kMessageQueue };

// Base of every kind of kernel object. A kind says when a wait by a given thread is satisfied and
// what taking the object does; the base keeps the threads waiting on it. Everything of an object
// that a wait looks at is guarded by its lock_. Objects start on their own cache line, so that
// threads working on different objects do not write to a line they share.
class alignas(64) KernelObject {
 public:
  explicit KernelObject(ObjectKind kind) : kind_(kind) {}
  virtual ~KernelObject() = default;
  KernelObject(const KernelObject&) = delete;
  KernelObject& operator=(const KernelObject&) = delete;

  ObjectKind kind() const { return kind_; }
  ObjectLock& lock() const RETURN_CAPABILITY(lock_) { return lock_; }

  // Whether a wait by `thread` would be satisfied now.
  virtual bool IsSignalledFor(DWORD thread) const REQUIRES(lock_) = 0;
  // The side effect of a successful wait by `thread` (an auto-reset event resets, ...). Returns
  // true when the object was abandoned, so that the wait reports WAIT_ABANDONED.
  virtual bool Acquire(const WaitingThread& thread) REQUIRES(lock_) = 0;

  void AddWaiter(Waiter* waiter) REQUIRES(lock_);
  void RemoveWaiter(Waiter* waiter) REQUIRES(lock_);

  // Called, with the lock held, when a wait on the object ends without having taken it, so that
  // a wake-up the object handed to that wait (see kWakeOldest) passes on to the next one.
  virtual void OnWaiterLeft() REQUIRES(lock_) {}

 protected:
  // How a signalled object treats the waits for any on it.
  enum class Handover {
    // Complete them, oldest first, while the object allows it: each has taken the object for its
    // thread before that thread runs.
    kComplete,
    // Only wake the oldest; it takes the object itself if it is still free when it runs. For an
    // object that its releaser, or any running thread, often wants again at once (a mutex):
    // handing it to a thread that is not running yet would make everyone else queue behind it.
    kWakeOldest,
  };

  // To be called, with the lock held, whenever the object may have become signalled: deals with
  // the waits for any as `handover` says, completes the waits for all that can be satisfied now,
  // and wakes those threads. A wait completed here has already taken its objects, so it succeeds
  // even if the object is non-signalled again by the time the thread runs.
  void SatisfyWaiters(Handover handover = Handover::kComplete) REQUIRES(lock_);

  mutable ObjectLock lock_;

 private:
  const ObjectKind kind_;
  std::vector<Waiter*> waiters_ GUARDED_BY(lock_);
};

// Unparks the threads that this thread woke while it held an object's lock (SatisfyWaiters). Every
// function that may signal an object calls it once it holds no object lock any more.
void UnparkPending();

// Sets ERROR_NOT_SUPPORTED and returns true when `name` is not null: objects are unnamed.
bool RefuseName(LPCWSTR name);

// An object found through its handle, kept alive (and its handle slot reserved) while this lives,
// even when another thread closes the handle meanwhile.
class ObjectRef {
 public:
  ObjectRef() = default;
  ObjectRef(void* slot, KernelObject* object) : slot_(slot), object_(object) {}
  ObjectRef(ObjectRef&& other) noexcept
      : slot_(std::exchange(other.slot_, nullptr)),
        object_(std::exchange(other.object_, nullptr)) {}
  ObjectRef& operator=(ObjectRef&& other) noexcept;
  ~ObjectRef() { Reset(); }

  KernelObject* get() const { return object_; }
  KernelObject* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  void Reset();

 private:
  void* slot_ = nullptr;
  KernelObject* object_ = nullptr;
};

// Enters `object` in the handle table. Null with ERROR_NOT_ENOUGH_MEMORY when the table is full.
HANDLE InsertHandle(std::shared_ptr<KernelObject> object);

// The object behind `handle`; empty with ERROR_INVALID_HANDLE for a closed, foreign or null handle.
ObjectRef FindObject(HANDLE handle);

// FindObject for a call that looks up no other handle before it is done with the object, through
// a small per-thread cache: the object stays valid until the calling thread's next lookup.
ObjectRef FindObjectForCall(HANDLE handle);

// The object behind `handle` as a shared pointer, for holders that outlive the call.
std::shared_ptr<KernelObject> ShareObject(HANDLE handle);

// The object behind `handle` if it is a T; null with ERROR_INVALID_HANDLE otherwise. Valid while
// `ref` lives (and, found through FindObjectForCall, until the thread's next lookup).
template <typename T>
T* FindObjectOf(HANDLE handle, ObjectRef& ref, ObjectRef (*find)(HANDLE) = FindObject) {
  ref = find(handle);
  if (!ref) return nullptr;
  if (ref->kind() != T::kKind) {
    ref.Reset();
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  return static_cast<T*>(ref.get());
}

// Closes `handle`; false with ERROR_INVALID_HANDLE when it is not valid. The object is destroyed
// once no call holds it any more, by whichever thread lets go of it last.
bool RemoveHandle(HANDLE handle);

// How many handles are open in the process: a test's check that nothing leaks.
std::size_t LiveHandleCount();

// Waits, as WaitForMultipleObjects does, for kernel objects that the caller keeps alive and that
// may have no handle (a thread's message queue, ...).
DWORD WaitForObjects(std::span<KernelObject* const> objects, bool wait_all, DWORD milliseconds);

// Uninstalls `clock` if it is the installed clock (a clock being destroyed calls this).
void ForgetClock(Clock* clock);

}  // namespace n7platform::internal
