#include "n7utility/Utility/WaitableObjects.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "n7utility/platform/kernel/ClockFixture_internal.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

// A set that records the signal codes it is handed.
class RecordingSet : public CWaitableObjects {
 public:
  std::vector<unsigned long> codes;  // read after the waiting thread is joined

 protected:
  void OnHandleSignal(unsigned long code) override { codes.push_back(code); }
};

// An object that reports its destruction.
class Tracked : public CEvent {
 public:
  explicit Tracked(bool& destroyed) : destroyed_(destroyed) {}
  ~Tracked() override { destroyed_ = true; }

 private:
  bool& destroyed_;
};

class WaitableObjectsTest : public n7platform::ManualClockTest {
 protected:
  // Runs WaitForObject on a thread of its own.
  std::future<unsigned long> StartWait(CWaitableObjects& set, unsigned long milliseconds,
                                       CSyncObject** object = nullptr) {
    return std::async(std::launch::async, [&set, milliseconds, object] {
      return set.WaitForObject(milliseconds, object);
    });
  }
};

TEST_F(WaitableObjectsTest, EmptySetTimesOutThenStopsAndOnlyAStopEndsWaiting) {
  RecordingSet set;
  auto timed = StartWait(set, 100);
  clock_.AwaitSleepers(1);
  clock_.Advance(100);
  EXPECT_EQ(timed.get(), WAIT_TIMEOUT);
  EXPECT_FALSE(set.Create());  // still waiting after a timeout

  auto stopped = StartWait(set, INFINITE);
  clock_.AwaitSleepers(1);
  set.Stop();
  EXPECT_EQ(stopped.get(), CWaitableObjects::kStopped);
  EXPECT_EQ(set.codes, std::vector<unsigned long>{1});
  EXPECT_TRUE(set.Create());
}

TEST_F(WaitableObjectsTest, ObjectAddedDuringTheWaitIsWaitedOnAndReportedByIndex) {
  CWaitableObjects set;
  ASSERT_TRUE(set.Add(new CEvent));
  CSyncObject* signalled = nullptr;
  auto wait = StartWait(set, INFINITE, &signalled);
  clock_.AwaitSleepers(1);
  auto* added = new CEvent;
  ASSERT_TRUE(set.Add(added));
  clock_.AwaitSleepers(1);  // woken, rebuilt, asleep again
  added->SetEvent();
  EXPECT_EQ(wait.get(), 1u);
  EXPECT_EQ(signalled, added);
}

TEST_F(WaitableObjectsTest, SignalsPostedBeforeTheWakeUpArriveInOrder) {
  RecordingSet set;
  auto wait = StartWait(set, INFINITE);
  clock_.AwaitSleepers(1);
  {
    // The waiter wakes at the first signal but cannot process it before the second is posted.
    n7platform::CriticalSectionLock hold(set.GetSyncObject());
    set.Signal(7);
    set.Signal(8);
  }
  clock_.AwaitSleepers(1);
  set.Stop();
  EXPECT_EQ(wait.get(), CWaitableObjects::kStopped);
  EXPECT_EQ(set.codes, (std::vector<unsigned long>{7, 8, 1}));
}

// A stop posted while no thread is blocked in the wait, as between a waiter's check and its
// block, ends the next wait at once.
TEST_F(WaitableObjectsTest, AStopPostedBeforeTheWaitBlocksIsNotLost) {
  RecordingSet set;
  set.Stop();
  EXPECT_EQ(set.WaitForObject(INFINITE, nullptr), CWaitableObjects::kStopped);
  EXPECT_EQ(set.codes, std::vector<unsigned long>{1});
}

TEST_F(WaitableObjectsTest, SignalsDoNotExtendTheTimeout) {
  CWaitableObjects set;
  auto wait = StartWait(set, 1000);
  clock_.AwaitSleepers(1);
  clock_.Advance(600);
  clock_.AwaitSleepers(1);
  set.Signal(5);
  clock_.AwaitSleepers(1);
  clock_.Advance(400);
  EXPECT_EQ(wait.get(), WAIT_TIMEOUT);
}

TEST(WaitableObjectsOwnershipTest, SetDeletesItsObjectsButNotRemovedOnes) {
  bool kept_destroyed = false;
  bool owned_destroyed = false;
  auto* kept = new Tracked(kept_destroyed);
  {
    CWaitableObjects set;
    EXPECT_FALSE(set.Add(nullptr));
    EXPECT_FALSE(set.Remove(kept));
    ASSERT_TRUE(set.Add(kept));
    ASSERT_TRUE(set.Add(new Tracked(owned_destroyed)));
    EXPECT_TRUE(set.Remove(kept));
    EXPECT_EQ(set.GetObjectAt(1), nullptr);
    EXPECT_NE(set.GetObjectAt(0), nullptr);
  }
  EXPECT_TRUE(owned_destroyed);
  EXPECT_FALSE(kept_destroyed);
  delete kept;
}

TEST(WaitableObjectsCapacityTest, EveryAcceptedObjectIsReportedByItsIndex) {
  CWaitableObjects set;
  std::vector<CEvent*> events;
  for (unsigned long i = 0; i < CWaitableObjects::kCapacity; ++i) {
    events.push_back(new CEvent);
    ASSERT_TRUE(set.Add(events.back()));
  }
  auto* refused = new CEvent;
  EXPECT_FALSE(set.Add(refused));
  delete refused;

  events.back()->SetEvent();
  CSyncObject* signalled = nullptr;
  EXPECT_EQ(set.WaitForObject(0, &signalled), CWaitableObjects::kCapacity - 1);
  EXPECT_EQ(signalled, events.back());
  EXPECT_EQ(set.WaitForObject(0, &signalled), WAIT_TIMEOUT);
}

TEST(WaitableObjectsResultTest, AbandonedMutexIsReportedByHandlePosition) {
  CWaitableObjects set;
  auto* mutex = new CMutex;
  ASSERT_TRUE(set.Add(mutex));
  std::thread([&] { EXPECT_TRUE(mutex->Lock(0)); }).join();
  CSyncObject* untouched = nullptr;
  EXPECT_EQ(set.WaitForObject(0, &untouched), WAIT_ABANDONED_0 + 1);
  EXPECT_EQ(untouched, nullptr);
  EXPECT_TRUE(mutex->Unlock());
}

}  // namespace
