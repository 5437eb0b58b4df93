// A plain mutex for the platform layer's own services, with the annotations the thread-safety
// analysis checks. The layer's framework classes (CCriticalSection and its kin) are built on the
// kernel objects; the services below them lock with this.
#pragma once

#include <mutex>

#include "n7utility/platform/base/ThreadAnnotations.h"

namespace n7platform::internal {

// The lock of one of the layer's services (thread bookkeeping, the message queues' directory, the
// registry's stores, the service manager's handles), usable with std::condition_variable. Never
// taken for a kernel object's own state, which has its own spin lock, and never held while calling
// out of the service.
class CAPABILITY("mutex") ServiceMutex {
 public:
  std::mutex& native() { return mutex_; }
  // Tells the analysis that the caller holds the lock (inside a condition variable's predicate).
  void AssertHeld() const ASSERT_CAPABILITY(this) {}

 private:
  std::mutex mutex_;
};

// Holds a ServiceMutex for a scope; lock() is what condition variables need.
class SCOPED_CAPABILITY ServiceGuard {
 public:
  explicit ServiceGuard(ServiceMutex& mutex) ACQUIRE(mutex) : lock_(mutex.native()) {}
  ~ServiceGuard() RELEASE() = default;
  ServiceGuard(const ServiceGuard&) = delete;
  ServiceGuard& operator=(const ServiceGuard&) = delete;

  std::unique_lock<std::mutex>& lock() { return lock_; }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace n7platform::internal
