#include "n7utility/platform/framework/SyncObjects.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "n7utility/platform/base/ConcurrentRun_test.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

using n7platform::test_support::RunConcurrently;

TEST(SingleLockTest, LocksOnceUnlocksOnDestructionAndToleratesNull) {
  CMutex mutex;
  {
    CSingleLock lock(&mutex, TRUE);
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_TRUE(lock.Lock(0));  // already locked: not taken a second time
    std::thread([&] { EXPECT_FALSE(CSingleLock(&mutex).Lock(0)); }).join();
  }
  std::thread([&] {
    CSingleLock lock(&mutex);
    EXPECT_TRUE(lock.Lock(0));
    EXPECT_TRUE(lock.Unlock());
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(lock.Unlock());  // not locked: nothing to do
  }).join();

  CSingleLock none(nullptr);
  EXPECT_FALSE(none.Lock(0));
  EXPECT_FALSE(none.IsLocked());
}

TEST(SyncObjectTest, KindsWrapTheirKernelObjects) {
  auto owned_event = std::make_unique<CEvent>(FALSE, TRUE);
  CEvent& event = *owned_event;
  EXPECT_TRUE(event.IsKindOf(RUNTIME_CLASS(CSyncObject)));
  EXPECT_FALSE(event.Lock(0));
  EXPECT_TRUE(event.SetEvent());
  EXPECT_TRUE(event.Lock(0));
  EXPECT_TRUE(event.Lock(0));  // manual reset
  EXPECT_TRUE(event.ResetEvent());
  EXPECT_FALSE(event.Lock(0));
  const HANDLE handle = event;
  owned_event.reset();
  EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);  // the destructor closed it

  CSemaphore semaphore(0, 2);
  EXPECT_FALSE(semaphore.Lock(0));
  LONG previous = -1;
  EXPECT_TRUE(semaphore.Unlock(2, &previous));
  EXPECT_EQ(previous, 0);
  EXPECT_FALSE(semaphore.Unlock());
  EXPECT_TRUE(semaphore.Lock(0));
  EXPECT_TRUE(semaphore.Unlock());

  CMutex owned(TRUE);
  std::thread([&] { EXPECT_FALSE(owned.Unlock()); }).join();
  EXPECT_TRUE(owned.Unlock());
}

// Whether `create` threw a CResourceException (which is released).
template <typename Create>
bool ThrowsResourceException(Create create) {
  try {
    create();
  } catch (CResourceException* e) {
    delete e;
    return true;
  }
  return false;
}

TEST(SyncObjectTest, ObjectThatCannotBeCreatedThrowsResourceException) {
  EXPECT_TRUE(ThrowsResourceException([] { CSemaphore impossible(2, 1); }));
  EXPECT_TRUE(ThrowsResourceException([] { CEvent named(FALSE, FALSE, L"named"); }));
  EXPECT_TRUE(ThrowsResourceException([] { CMutex named(FALSE, L"named"); }));
  EXPECT_FALSE(ThrowsResourceException([] { CMutex unnamed; }));
}

// Takes the section twice, as a re-entrant caller does; the analysis has no notion of that.
void IncrementTwiceLocked(CCriticalSection& section, int& counter) NO_THREAD_SAFETY_ANALYSIS {
  n7platform::CriticalSectionLock outer(section);
  n7platform::CriticalSectionLock inner(section);
  ++counter;
}

TEST(CriticalSectionTest, IsReentrantAndExcludesOtherThreads) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  CCriticalSection section;
  int counter = 0;
  RunConcurrently(kThreads, [&](int /*thread*/) {
    for (int round = 0; round < kRounds; ++round) IncrementTwiceLocked(section, counter);
  });
  EXPECT_EQ(counter, kThreads * kRounds);
}

}  // namespace
