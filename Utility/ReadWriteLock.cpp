#include "n7utility/Utility/ReadWriteLock.h"

#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/kernel/KernelObjects.h"

AReadWriteLock::~AReadWriteLock() = default;

// ---------------------------------------------------------------------------------------------
// CMutexRWLock

CMutexRWLock::CMutexRWLock() : m_hMutex(CreateMutexW(nullptr, FALSE, nullptr)) {
  if (m_hMutex == nullptr) AfxThrowResourceException();
}

CMutexRWLock::~CMutexRWLock() {
  if (m_hMutex != nullptr) CloseHandle(m_hMutex);
}

void CMutexRWLock::AcquireReadLock() { WaitForSingleObject(m_hMutex, INFINITE); }

void CMutexRWLock::ReleaseReadLock() { ReleaseMutex(m_hMutex); }

void CMutexRWLock::AcquireWriteLock() { WaitForSingleObject(m_hMutex, INFINITE); }

void CMutexRWLock::ReleaseWriteLock() { ReleaseMutex(m_hMutex); }

// ---------------------------------------------------------------------------------------------
// The preference locks

namespace n7utility::internal {

bool PreferenceLock::ReaderAdmitted() const {
  return state_ >= 0 && !(writers_first_ && waiting_writers_ != 0);
}

// A woken thread re-tests its condition under the guard, so a wake-up that finds the lock taken
// again simply waits again.
void PreferenceLock::WaitFor(std::condition_variable& wake, std::int32_t& waiting) {
  ++waiting;
  waiting_changed_.notify_all();
  std::unique_lock<std::mutex> lock(guard_.native(), std::adopt_lock);
  wake.wait(lock);
  lock.release();
  --waiting;
}

void PreferenceLock::AcquireRead() {
  guard_.lock();
  while (!ReaderAdmitted()) WaitFor(readers_wake_, waiting_readers_);
  ++state_;
  guard_.unlock();
}

void PreferenceLock::ReleaseRead() {
  guard_.lock();
  --state_;
  const std::int32_t writers = state_ == 0 ? waiting_writers_ : 0;
  guard_.unlock();
  if (writers > 0) writers_wake_.notify_one();
}

void PreferenceLock::AcquireWrite() {
  guard_.lock();
  while (state_ != 0) WaitFor(writers_wake_, waiting_writers_);
  state_ = -1;
  guard_.unlock();
}

// Wakes after releasing the guard, so that the woken threads do not run into it.
void PreferenceLock::ReleaseWrite() {
  guard_.lock();
  state_ = 0;
  const std::int32_t readers = waiting_readers_;
  const std::int32_t writers = waiting_writers_;
  guard_.unlock();
  const bool wake_writer = writers > 0 && (writers_first_ || readers == 0);
  if (wake_writer) {
    writers_wake_.notify_one();
  } else if (readers > 0) {
    readers_wake_.notify_all();
  }
}

void PreferenceLock::AwaitWaiting(std::int32_t readers, std::int32_t writers) {
  std::unique_lock<std::mutex> lock(guard_.native());
  waiting_changed_.wait(lock, [&]() NO_THREAD_SAFETY_ANALYSIS {
    return waiting_readers_ >= readers && waiting_writers_ >= writers;
  });
}

}  // namespace n7utility::internal

CReaderPrefRWLock::CReaderPrefRWLock() = default;
CReaderPrefRWLock::~CReaderPrefRWLock() = default;
void CReaderPrefRWLock::AcquireReadLock() { m_lock.AcquireRead(); }
void CReaderPrefRWLock::ReleaseReadLock() { m_lock.ReleaseRead(); }
void CReaderPrefRWLock::AcquireWriteLock() { m_lock.AcquireWrite(); }
void CReaderPrefRWLock::ReleaseWriteLock() { m_lock.ReleaseWrite(); }

CWriterPrefRWLock::CWriterPrefRWLock() = default;
CWriterPrefRWLock::~CWriterPrefRWLock() = default;
void CWriterPrefRWLock::AcquireReadLock() { m_lock.AcquireRead(); }
void CWriterPrefRWLock::ReleaseReadLock() { m_lock.ReleaseRead(); }
void CWriterPrefRWLock::AcquireWriteLock() { m_lock.AcquireWrite(); }
void CWriterPrefRWLock::ReleaseWriteLock() { m_lock.ReleaseWrite(); }
