// Mutexes: kernel objects owned by one thread at a time, recursive, abandoned when their owner
// ends while holding them.

#include "n7utility/platform/kernel/Mutex.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"
#include "n7utility/platform/kernel/Thread.h"

namespace n7platform::internal {
namespace {

class Mutex;

}  // namespace

// The mutexes one thread owns, oldest first. An owned mutex is kept alive here even when its last
// handle is closed, so that the owner's end can still abandon it. Only the owner changes the list,
// or the one thread that completes the owner's wait while the owner is blocked in it; the object
// locks taken on both sides order those changes.
class OwnedMutexes {
 public:
  OwnedMutexes() = default;
  OwnedMutexes(const OwnedMutexes&) = delete;
  OwnedMutexes& operator=(const OwnedMutexes&) = delete;
  ~OwnedMutexes();

  void Add(std::shared_ptr<Mutex> mutex) { mutexes_.push_back(std::move(mutex)); }
  // Takes `mutex` off the list; the caller lets the returned reference go once it holds no lock.
  std::shared_ptr<Mutex> Remove(const Mutex* mutex) {
    const auto found = std::find_if(mutexes_.begin(), mutexes_.end(),
                                    [&](const auto& owned) { return owned.get() == mutex; });
    std::shared_ptr<Mutex> removed = std::move(*found);
    mutexes_.erase(found);
    return removed;
  }
  std::vector<std::shared_ptr<Mutex>> TakeAll() { return std::exchange(mutexes_, {}); }

 private:
  std::vector<std::shared_ptr<Mutex>> mutexes_;
};

namespace {

class Mutex final : public KernelObject, public std::enable_shared_from_this<Mutex> {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kMutex;

  Mutex() : KernelObject(kKind) {}

  bool IsSignalledFor(DWORD thread) const override REQUIRES(lock_) {
    return owner_ == 0 || owner_ == thread;
  }

  // Runs on the thread that completes the wait, which need not be `thread`.
  bool Acquire(const WaitingThread& thread) override REQUIRES(lock_) {
    if (owner_ == 0) {
      owner_ = thread.id;
      thread.owned->Add(shared_from_this());
    }
    ++count_;
    return std::exchange(abandoned_, false);
  }

  // False when `thread` does not own the mutex. A mutex that becomes free leaves the owner's list
  // through `released`, which the caller destroys once the lock is released.
  bool Release(const WaitingThread& thread, std::shared_ptr<Mutex>& released) REQUIRES(lock_) {
    if (owner_ == 0 || owner_ != thread.id) return false;
    if (--count_ == 0) {
      released = thread.owned->Remove(this);
      owner_ = 0;
      SatisfyWaiters(Handover::kWakeOldest);
    }
    return true;
  }

  void OnWaiterLeft() override REQUIRES(lock_) {
    if (owner_ == 0) SatisfyWaiters(Handover::kWakeOldest);
  }

  // Frees the mutex if `thread` (which is ending) still owns it; the caller took it off the list.
  void Abandon(DWORD thread) REQUIRES(lock_) {
    if (owner_ != thread) return;
    owner_ = 0;
    count_ = 0;
    abandoned_ = true;
    SatisfyWaiters(Handover::kWakeOldest);
  }

 private:
  DWORD owner_ GUARDED_BY(lock_) = 0;  // thread id; 0 when free
  DWORD count_ GUARDED_BY(lock_) = 0;
  bool abandoned_ GUARDED_BY(lock_) = false;
};

void Abandon(const std::vector<std::shared_ptr<Mutex>>& mutexes, DWORD thread) {
  for (const auto& mutex : mutexes) {
    ObjectGuard guard(mutex->lock());
    mutex->Abandon(thread);
  }
  UnparkPending();
}

// The calling thread's owned mutexes. Its destruction, as the thread ends, abandons those still
// owned, whoever started the thread. Threads of the platform layer abandon theirs earlier, before
// their handle is signalled; this catches the others.
OwnedMutexes& ThisThreadsMutexes() {
  thread_local OwnedMutexes owned;
  return owned;
}

}  // namespace

OwnedMutexes::~OwnedMutexes() { Abandon(TakeAll(), GetCurrentThreadId()); }

WaitingThread ThisWaitingThread() { return {GetCurrentThreadId(), &ThisThreadsMutexes()}; }

void AbandonMutexesOfThisThread() { Abandon(ThisThreadsMutexes().TakeAll(), GetCurrentThreadId()); }

}  // namespace n7platform::internal

using n7platform::internal::Mutex;
using n7platform::internal::ObjectGuard;
using n7platform::internal::ObjectRef;

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES /*security*/, BOOL initial_owner, LPCWSTR name) {
  if (n7platform::internal::RefuseName(name)) return nullptr;
  auto mutex = std::make_shared<Mutex>();
  const auto thread = n7platform::internal::ThisWaitingThread();
  if (initial_owner != FALSE) {
    ObjectGuard guard(mutex->lock());
    mutex->Acquire(thread);
  }
  HANDLE handle = n7platform::internal::InsertHandle(mutex);
  if (handle == nullptr && initial_owner != FALSE) {
    std::shared_ptr<Mutex> released;
    ObjectGuard guard(mutex->lock());
    mutex->Release(thread, released);
  }
  return handle;
}

BOOL ReleaseMutex(HANDLE handle) {
  ObjectRef ref;
  Mutex* mutex = n7platform::internal::FindObjectOf<Mutex>(handle, ref,
                                                           n7platform::internal::FindObjectForCall);
  if (mutex == nullptr) return FALSE;
  std::shared_ptr<Mutex> released;  // destroyed after the lock is released
  bool owned = false;
  {
    ObjectGuard guard(mutex->lock());
    owned = mutex->Release(n7platform::internal::ThisWaitingThread(), released);
  }
  n7platform::internal::UnparkPending();
  if (!owned) {
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
  }
  return TRUE;
}
