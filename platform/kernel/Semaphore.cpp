// Semaphores: kernel objects with a count between 0 and a maximum; a wait takes one unit.

#include "n7utility/platform/kernel/Semaphore.h"

#include <memory>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform::internal {
namespace {

class Semaphore final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kSemaphore;

  Semaphore(LONG count, LONG maximum) : KernelObject(kKind), count_(count), maximum_(maximum) {}

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(lock_) { return count_ > 0; }

  bool Acquire(const WaitingThread& /*thread*/) override REQUIRES(lock_) {
    --count_;
    return false;
  }

  // Adds `units` (> 0) unless the count would pass the maximum; returns the count before.
  bool Release(LONG units, LONG& previous) REQUIRES(lock_) {
    if (units > maximum_ - count_) return false;
    previous = count_;
    count_ += units;
    SatisfyWaiters();
    return true;
  }

 private:
  LONG count_ GUARDED_BY(lock_);
  const LONG maximum_;
};

}  // namespace
}  // namespace n7platform::internal

using n7platform::internal::ObjectGuard;
using n7platform::internal::ObjectRef;
using n7platform::internal::Semaphore;

HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES /*security*/, LONG initial_count, LONG maximum_count,
                        LPCWSTR name) {
  if (n7platform::internal::RefuseName(name)) return nullptr;
  if (maximum_count <= 0 || initial_count < 0 || initial_count > maximum_count) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  auto semaphore = std::make_shared<Semaphore>(initial_count, maximum_count);
  return n7platform::internal::InsertHandle(std::move(semaphore));
}

BOOL ReleaseSemaphore(HANDLE handle, LONG release_count, LONG* previous_count) {
  if (release_count <= 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  ObjectRef ref;
  Semaphore* semaphore = n7platform::internal::FindObjectOf<Semaphore>(
      handle, ref, n7platform::internal::FindObjectForCall);
  if (semaphore == nullptr) return FALSE;
  LONG previous = 0;
  bool released = false;
  {
    ObjectGuard guard(semaphore->lock());
    released = semaphore->Release(release_count, previous);
  }
  n7platform::internal::UnparkPending();
  if (!released) {
    SetLastError(ERROR_TOO_MANY_POSTS);
    return FALSE;
  }
  if (previous_count != nullptr) *previous_count = previous;
  return TRUE;
}
