#include "n7utility/Utility/ReadWriteLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/kernel/ClockFixture_internal.h"

namespace {

using n7platform::test_support::RunConcurrently;

// The names of the threads that got the lock, in order.
class Log {
 public:
  void Add(const std::string& name) {
    std::lock_guard lock(mutex_);
    names_.push_back(name);
    changed_.notify_all();
  }
  // Blocks until `count` names are logged; returns them.
  std::vector<std::string> WaitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return names_.size() >= count; });
    return names_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> names_;
};

// A thread that takes the lock, logs its name, holds the lock until Release() and then lets go.
class Holder {
 public:
  Holder(AReadWriteLock& lock, bool write, const std::string& name, Log& log)
      : thread_([this, &lock, write, name, &log] {
          write ? lock.AcquireWriteLock() : lock.AcquireReadLock();
          log.Add(name);
          release_.acquire();
          write ? lock.ReleaseWriteLock() : lock.ReleaseReadLock();
        }) {}
  ~Holder() { Release(); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  void Release() {
    if (!thread_.joinable()) return;
    release_.release();
    thread_.join();
  }

 private:
  std::binary_semaphore release_{0};
  std::thread thread_;
};

// The preference locks with their waiting counters in view.
template <typename Lock>
class Observed : public Lock {
 public:
  void AwaitWaiting(std::int32_t readers, std::int32_t writers) {
    this->m_lock.AwaitWaiting(readers, writers);
  }
};

using Names = std::vector<std::string>;

TEST(ReaderPrefRWLockTest, SecondReaderPassesAWaitingWriter) {
  Observed<CReaderPrefRWLock> lock;
  Log log;
  lock.AcquireReadLock();
  Holder writer(lock, true, "writer", log);
  lock.AwaitWaiting(0, 1);
  Holder reader(lock, false, "reader", log);
  EXPECT_EQ(log.WaitFor(1), Names{"reader"});
  lock.ReleaseReadLock();
  reader.Release();
  EXPECT_EQ(log.WaitFor(2), (Names{"reader", "writer"}));
}

TEST(ReaderPrefRWLockTest, ReleasingWriterAdmitsAllWaitingReadersBeforeWriters) {
  Observed<CReaderPrefRWLock> lock;
  Log log;
  lock.AcquireWriteLock();
  Holder r1(lock, false, "r", log);
  Holder r2(lock, false, "r", log);
  Holder writer(lock, true, "writer", log);
  lock.AwaitWaiting(2, 1);
  lock.ReleaseWriteLock();
  EXPECT_EQ(log.WaitFor(2), (Names{"r", "r"}));  // both hold it at once
  lock.AwaitWaiting(0, 1);
  r1.Release();
  r2.Release();
  EXPECT_EQ(log.WaitFor(3), (Names{"r", "r", "writer"}));
}

TEST(WriterPrefRWLockTest, WaitingWriterHoldsBackNewReaders) {
  Observed<CWriterPrefRWLock> lock;
  Log log;
  lock.AcquireReadLock();
  Holder writer(lock, true, "writer", log);
  lock.AwaitWaiting(0, 1);
  Holder reader(lock, false, "reader", log);
  lock.AwaitWaiting(1, 1);
  lock.ReleaseReadLock();
  EXPECT_EQ(log.WaitFor(1), Names{"writer"});
  writer.Release();
  EXPECT_EQ(log.WaitFor(2), (Names{"writer", "reader"}));
}

TEST(WriterPrefRWLockTest, ReleasingWriterHandsOverToOneWriterAtATimeThenReaders) {
  Observed<CWriterPrefRWLock> lock;
  Log log;
  lock.AcquireWriteLock();
  Holder w1(lock, true, "w1", log);
  Holder w2(lock, true, "w2", log);
  Holder reader(lock, false, "reader", log);
  lock.AwaitWaiting(1, 2);
  lock.ReleaseWriteLock();
  const std::string first = log.WaitFor(1)[0];
  lock.AwaitWaiting(1, 1);  // the other writer still waits
  (first == "w1" ? w1 : w2).Release();
  const std::string second = log.WaitFor(2)[1];
  EXPECT_NE(second, first);
  EXPECT_NE(second, "reader");
  (second == "w1" ? w1 : w2).Release();
  EXPECT_EQ(log.WaitFor(3)[2], "reader");
}

using MutexRWLockTest = n7platform::ManualClockTest;

TEST_F(MutexRWLockTest, ReadersExcludeEachOtherAndTheOwnerReenters) {
  CMutexRWLock lock;
  Log log;
  lock.AcquireReadLock();
  Holder reader(lock, false, "reader", log);
  clock_.AwaitSleepers(1);
  lock.ReleaseReadLock();
  EXPECT_EQ(log.WaitFor(1), Names{"reader"});
  reader.Release();

  lock.AcquireWriteLock();
  lock.AcquireWriteLock();
  Holder writer(lock, true, "writer", log);
  clock_.AwaitSleepers(1);
  lock.ReleaseWriteLock();
  clock_.AwaitSleepers(1);  // still held once
  lock.ReleaseWriteLock();
  EXPECT_EQ(log.WaitFor(2), (Names{"reader", "writer"}));
}

// Readers and writers hammer each lock; a writer must be alone, readers only among readers.
template <typename Lock>
class ExclusionTest : public ::testing::Test {};
using LockKinds = ::testing::Types<CMutexRWLock, CReaderPrefRWLock, CWriterPrefRWLock>;
TYPED_TEST_SUITE(ExclusionTest, LockKinds);

TYPED_TEST(ExclusionTest, WritersAreAloneReadersShare) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  TypeParam lock;
  std::atomic<int> readers{0};
  std::atomic<int> writers{0};
  long long total = 0;  // written under the write lock only
  RunConcurrently(kThreads, [&](int t) {
    for (int round = 0; round < kRounds; ++round) {
      if ((round + t) % 4 == 0) {
        lock.AcquireWriteLock();
        EXPECT_EQ(++writers, 1);
        EXPECT_EQ(readers.load(), 0);
        ++total;
        --writers;
        lock.ReleaseWriteLock();
      } else {
        lock.AcquireReadLock();
        ++readers;
        EXPECT_EQ(writers.load(), 0);
        EXPECT_GE(total, 0);
        --readers;
        lock.ReleaseReadLock();
      }
    }
  });
  EXPECT_EQ(total, kThreads * kRounds / 4);
}

}  // namespace
