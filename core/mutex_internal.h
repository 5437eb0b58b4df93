// A mutex that Clang's thread-safety analysis understands, for the core services' own
// process-wide tables.
//
// The core services are linked into tests without the platform layer's code, so they cannot use
// the platform's critical section; this wraps std::mutex with the capability annotations instead.
#pragma once

#include <mutex>

#include "n7utility/platform/base/ThreadAnnotations.h"

namespace n7core::internal {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a Mutex for a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace n7core::internal
