// Mutexes: kernel objects owned by one thread at a time, recursive, abandoned when their owner
// ends while holding them.

#include <algorithm>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/KernelObjects.h"
#include "platform/KernelObjects_internal.h"
#include "platform/NoDestructor.h"
#include "platform/Thread.h"

namespace n7platform::internal {
namespace {

class Mutex;

// The mutexes each thread owns, so that a thread's end can abandon them. An owned mutex is kept
// alive here even when its last handle is closed, as its owner may still release it.
using OwnedMutexes = std::unordered_map<DWORD, std::vector<std::shared_ptr<Mutex>>>;

OwnedMutexes& Owned() REQUIRES(KernelLock()) {
  static NoDestructor<OwnedMutexes> owned;
  return *owned;
}

class Mutex final : public KernelObject, public std::enable_shared_from_this<Mutex> {
 public:
  bool IsSignalledFor(DWORD thread) const override REQUIRES(KernelLock()) {
    return owner_ == 0 || owner_ == thread;
  }

  // Runs on the thread that completes the wait, which need not be `thread`.
  bool Acquire(DWORD thread) override REQUIRES(KernelLock()) {
    if (owner_ == 0) {
      owner_ = thread;
      Owned()[thread].push_back(shared_from_this());
    }
    ++count_;
    return std::exchange(abandoned_, false);
  }

  bool Release(DWORD thread) REQUIRES(KernelLock()) {
    if (owner_ == 0 || owner_ != thread) return false;
    if (--count_ == 0) {
      Disown();
      SatisfyWaiters();
    }
    return true;
  }

  // Frees the mutex of an owner that ended; the caller takes it off the owner's list.
  void Abandon() REQUIRES(KernelLock()) {
    owner_ = 0;
    count_ = 0;
    abandoned_ = true;
    SatisfyWaiters();
  }

 private:
  void Disown() REQUIRES(KernelLock()) {
    const auto entry = Owned().find(owner_);
    auto& mutexes = entry->second;
    mutexes.erase(std::find(mutexes.begin(), mutexes.end(), shared_from_this()));
    if (mutexes.empty()) Owned().erase(entry);
    owner_ = 0;
  }

  DWORD owner_ GUARDED_BY(KernelLock()) = 0;  // thread id; 0 when free
  DWORD count_ GUARDED_BY(KernelLock()) = 0;
  bool abandoned_ GUARDED_BY(KernelLock()) = false;
};

// Abandons the calling thread's mutexes when the thread ends, whoever started it. Threads of
// the platform layer abandon theirs earlier, before their handle is signalled; this catches the
// others.
class ThreadExitWatch {
 public:
  ThreadExitWatch() = default;
  ~ThreadExitWatch() {
    KernelGuard guard;
    AbandonMutexesOf(GetCurrentThreadId());
  }
  ThreadExitWatch(const ThreadExitWatch&) = delete;
  ThreadExitWatch& operator=(const ThreadExitWatch&) = delete;
};

}  // namespace

void WatchThreadExit() {
  thread_local ThreadExitWatch watch;
  static_cast<void>(watch);
}

void AbandonMutexesOf(DWORD thread) {
  const auto entry = Owned().find(thread);
  if (entry == Owned().end()) return;
  const std::vector<std::shared_ptr<Mutex>> mutexes = std::move(entry->second);
  Owned().erase(entry);
  for (const auto& mutex : mutexes) mutex->Abandon();
}

}  // namespace n7platform::internal

using n7platform::internal::KernelGuard;
using n7platform::internal::Mutex;

HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES /*security*/, BOOL initial_owner, LPCWSTR name) {
  if (n7platform::internal::RefuseName(name)) return nullptr;
  auto mutex = std::make_shared<Mutex>();
  if (initial_owner != FALSE) n7platform::internal::WatchThreadExit();
  KernelGuard guard;
  if (initial_owner != FALSE) mutex->Acquire(GetCurrentThreadId());
  HANDLE handle = n7platform::internal::InsertHandle(mutex);
  if (handle == nullptr && initial_owner != FALSE) mutex->Release(GetCurrentThreadId());
  return handle;
}

BOOL ReleaseMutex(HANDLE handle) {
  KernelGuard guard;
  Mutex* mutex = n7platform::internal::FindObjectOf<Mutex>(handle);
  if (mutex == nullptr) return FALSE;
  if (!mutex->Release(GetCurrentThreadId())) {
    SetLastError(ERROR_NOT_OWNER);
    return FALSE;
  }
  return TRUE;
}
