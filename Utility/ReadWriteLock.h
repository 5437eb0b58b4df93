// Reader/writer locks behind one abstract interface, so that client code can hold an
// AReadWriteLock and be handed whichever policy suits it.
//
// - CMutexRWLock: one mutex; readers and writers alike are exclusive. Re-entrant: the owning
//   thread may acquire again (each acquire needs its release). Only the owning thread releases.
// - CReaderPrefRWLock: many readers or one writer; a new reader is admitted whenever no writer
//   holds the lock, even while writers wait, and a releasing writer wakes the waiting readers
//   first (all of them), else one waiting writer.
// - CWriterPrefRWLock: many readers or one writer; a new reader is held back while a writer holds
//   or waits for the lock, and a releasing writer wakes one waiting writer first, else all the
//   waiting readers.
//
// Waits are unbounded and the operations report nothing. A caller pairs every acquire with the
// release of the same kind; releases are not checked against what the caller holds. In the
// preference locks a lock may be released by another thread than the one that took it, and a
// writer must not acquire again (it would wait for itself); in the writer-preference lock a reader
// must not take a second read lock while a writer may be waiting, since that request waits behind
// the writer, which waits for the first read lock.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"

class N7_EXPORT AReadWriteLock {
 public:
  AReadWriteLock() = default;
  virtual ~AReadWriteLock();
  AReadWriteLock(const AReadWriteLock&) = delete;
  AReadWriteLock& operator=(const AReadWriteLock&) = delete;

  virtual void AcquireReadLock() = 0;
  virtual void ReleaseReadLock() = 0;
  virtual void AcquireWriteLock() = 0;
  virtual void ReleaseWriteLock() = 0;
};

class N7_EXPORT CMutexRWLock : public AReadWriteLock {
 public:
  // Throws CResourceException* when the mutex cannot be created.
  CMutexRWLock();
  ~CMutexRWLock() override;

  void AcquireReadLock() override;
  void ReleaseReadLock() override;
  void AcquireWriteLock() override;
  void ReleaseWriteLock() override;

 private:
  HANDLE m_hMutex = nullptr;
};

namespace n7utility::internal {

// The guard of a preference lock: a plain mutex the thread-safety analysis knows.
class CAPABILITY("mutex") RWGuard {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  std::mutex& native() { return mutex_; }

 private:
  std::mutex mutex_;
};

// The counters and algorithms of the two preference locks, which differ only in whom a reader
// gives way to and whom a releasing writer wakes. The guard is held only to test or change the
// counters, never while a thread waits. The primitives cannot fail to be created.
class PreferenceLock {
 public:
  explicit PreferenceLock(bool writers_first) : writers_first_(writers_first) {}

  void AcquireRead() EXCLUDES(guard_);
  void ReleaseRead() EXCLUDES(guard_);
  void AcquireWrite() EXCLUDES(guard_);
  void ReleaseWrite() EXCLUDES(guard_);

  // Blocks until at least `readers` readers and `writers` writers wait (for tests).
  void AwaitWaiting(std::int32_t readers, std::int32_t writers) EXCLUDES(guard_);

 private:
  bool ReaderAdmitted() const REQUIRES(guard_);
  // Counts the caller in `waiting` while it waits for a wake-up of `wake`.
  void WaitFor(std::condition_variable& wake, std::int32_t& waiting) REQUIRES(guard_);

  const bool writers_first_;
  RWGuard guard_;
  std::condition_variable readers_wake_;  // all waiting readers are woken at once
  std::condition_variable writers_wake_;  // one waiting writer is woken at a time
  std::condition_variable waiting_changed_;
  // 0: free; n > 0: held by n readers; -1: held by one writer.
  std::int32_t state_ GUARDED_BY(guard_) = 0;
  std::int32_t waiting_readers_ GUARDED_BY(guard_) = 0;
  std::int32_t waiting_writers_ GUARDED_BY(guard_) = 0;
};

}  // namespace n7utility::internal

class N7_EXPORT CReaderPrefRWLock : public AReadWriteLock {
 public:
  CReaderPrefRWLock();
  ~CReaderPrefRWLock() override;

  void AcquireReadLock() override;
  void ReleaseReadLock() override;
  void AcquireWriteLock() override;
  void ReleaseWriteLock() override;

 protected:
  n7utility::internal::PreferenceLock m_lock{false};
};

class N7_EXPORT CWriterPrefRWLock : public AReadWriteLock {
 public:
  CWriterPrefRWLock();
  ~CWriterPrefRWLock() override;

  void AcquireReadLock() override;
  void ReleaseReadLock() override;
  void AcquireWriteLock() override;
  void ReleaseWriteLock() override;

 protected:
  n7utility::internal::PreferenceLock m_lock{true};
};
