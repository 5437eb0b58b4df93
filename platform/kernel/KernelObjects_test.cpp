#include "n7utility/platform/kernel/KernelObjects.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "n7utility/platform/kernel/ClockFixture_internal.h"
#include "n7utility/platform/kernel/Thread.h"

namespace n7platform {
namespace {

// A kernel object handle, closed at the end of the scope.
class Handle {
 public:
  explicit Handle(HANDLE handle) : handle_(handle) {}
  ~Handle() { CloseHandle(handle_); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  operator HANDLE() const { return handle_; }  // NOLINT(google-explicit-constructor)

 private:
  HANDLE handle_;
};

struct Event : Handle {
  Event(bool manual_reset, bool initial_state)
      : Handle(CreateEventW(nullptr, manual_reset, initial_state, nullptr)) {}
};

// A wait running on its own thread.
class AsyncWait {
 public:
  AsyncWait(std::vector<HANDLE> handles, BOOL wait_all, DWORD milliseconds)
      : handles_(std::move(handles)), thread_([this, wait_all, milliseconds] {
          result_ = WaitForMultipleObjects(static_cast<DWORD>(handles_.size()), handles_.data(),
                                           wait_all, milliseconds);
          done_ = true;
        }) {}
  AsyncWait(HANDLE handle, DWORD milliseconds)
      : AsyncWait(std::vector{handle}, FALSE, milliseconds) {}
  ~AsyncWait() {
    if (thread_.joinable()) thread_.join();
  }
  AsyncWait(const AsyncWait&) = delete;
  AsyncWait& operator=(const AsyncWait&) = delete;

  bool done() const { return done_; }
  DWORD Result() {
    if (thread_.joinable()) thread_.join();
    return result_;
  }

 private:
  const std::vector<HANDLE> handles_;
  std::atomic<bool> done_{false};
  DWORD result_ = WAIT_FAILED;
  std::thread thread_;
};

DWORD Poll(HANDLE handle) { return WaitForSingleObject(handle, 0); }

// The result of `wait`, and the last error it set.
template <typename Wait>
std::pair<DWORD, DWORD> Failure(Wait wait) {
  SetLastError(ERROR_SUCCESS);
  const DWORD result = wait();
  return {result, GetLastError()};
}

TEST(EventTest, AutoResetIsTakenByOneWaitManualResetStaysSet) {
  Event automatic(false, true);
  EXPECT_EQ(Poll(automatic), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(automatic), WAIT_TIMEOUT);
  SetEvent(automatic);
  SetEvent(automatic);
  EXPECT_EQ(Poll(automatic), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(automatic), WAIT_TIMEOUT);
  EXPECT_TRUE(PulseEvent(automatic));  // nobody waits: nothing happens
  EXPECT_EQ(Poll(automatic), WAIT_TIMEOUT);

  Event manual(true, false);
  EXPECT_EQ(Poll(manual), WAIT_TIMEOUT);
  EXPECT_TRUE(SetEvent(manual));
  EXPECT_EQ(Poll(manual), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(manual), WAIT_OBJECT_0);
  EXPECT_TRUE(ResetEvent(manual));
  EXPECT_EQ(Poll(manual), WAIT_TIMEOUT);
  SetEvent(manual);
  EXPECT_TRUE(PulseEvent(manual));
  EXPECT_EQ(Poll(manual), WAIT_TIMEOUT);
}

TEST(HandleTest, StaleForeignAndNullHandlesAreRejected) {
  HANDLE closed = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  ASSERT_TRUE(CloseHandle(closed));
  Event reuser(true, true);  // takes the freed slot, under another handle value
  EXPECT_NE(static_cast<HANDLE>(reuser), closed);

  int local = 0;
  // The open handle's slot and generation, marked as a handle of another of the layer's tables.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  const auto other_table = reinterpret_cast<HANDLE>(
      reinterpret_cast<std::uintptr_t>(static_cast<HANDLE>(reuser)) | (std::uintptr_t{1} << 24));
  for (HANDLE bad :
       {closed, static_cast<HANDLE>(nullptr), static_cast<HANDLE>(&local), other_table,
        reinterpret_cast<HANDLE>(~std::uintptr_t{0})}) {  // NOLINT(performance-no-int-to-ptr)
    EXPECT_EQ(Failure([&] { return Poll(bad); }), std::pair(WAIT_FAILED, ERROR_INVALID_HANDLE));
    EXPECT_EQ(Failure([&] { return static_cast<DWORD>(SetEvent(bad)); }),
              std::pair(0u, ERROR_INVALID_HANDLE));
    EXPECT_FALSE(CloseHandle(bad));
  }
  EXPECT_EQ(Poll(reuser), WAIT_OBJECT_0);
  EXPECT_EQ(Failure([] {
              return static_cast<DWORD>(CreateEventW(nullptr, TRUE, FALSE, L"x") != nullptr);
            }),
            std::pair(0u, ERROR_NOT_SUPPORTED));
}

TEST(WaitTest, InvalidParametersFail) {
  Event a(true, true);
  Event b(true, true);
  std::vector<HANDLE> many(MAXIMUM_WAIT_OBJECTS + 1, static_cast<HANDLE>(a));
  const HANDLE duplicated[] = {a, b, a};
  const HANDLE with_null[] = {a, nullptr};
  const auto wait = [](DWORD count, const HANDLE* handles, BOOL all) {
    return Failure([=] { return WaitForMultipleObjects(count, handles, all, 0); });
  };
  const std::pair invalid_parameter(WAIT_FAILED, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(wait(0, many.data(), FALSE), invalid_parameter);
  EXPECT_EQ(wait(MAXIMUM_WAIT_OBJECTS + 1, many.data(), FALSE), invalid_parameter);
  EXPECT_EQ(wait(1, nullptr, FALSE), invalid_parameter);
  EXPECT_EQ(wait(3, duplicated, TRUE), invalid_parameter);
  EXPECT_EQ(wait(2, with_null, FALSE), std::pair(WAIT_FAILED, ERROR_INVALID_HANDLE));

  // The limit itself is fine, and a wait for any may name an object twice.
  EXPECT_EQ(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, many.data(), FALSE, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForMultipleObjects(3, duplicated, FALSE, 0), WAIT_OBJECT_0);
}

TEST(WaitTest, WaitForAnyTakesTheLowestSignalledIndexWaitForAllTakesAllOrNone) {
  Event e0(false, false);
  Event e1(false, true);
  Event e2(false, true);
  const HANDLE handles[] = {e0, e1, e2};
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 0), WAIT_TIMEOUT);
  EXPECT_EQ(Poll(e2), WAIT_OBJECT_0);  // still set, then taken
  SetEvent(e0);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0);
  SetEvent(e0);
  SetEvent(e1);
  SetEvent(e2);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_TIMEOUT);
}

TEST(WaitTest, TimeoutOnTheRealClockExpires) {
  Event never(true, false);
  EXPECT_EQ(WaitForSingleObject(never, 1), WAIT_TIMEOUT);
}

using BlockingWaitTest = ManualClockTest;

TEST_F(BlockingWaitTest, TimeoutIsMeasuredOnTheClock) {
  Event never(true, false);
  AsyncWait wait(never, 5000);
  clock_.AwaitSleepers(1);
  clock_.Advance(4999);
  clock_.AwaitSleepers(1);
  EXPECT_FALSE(wait.done());
  clock_.Advance(1);
  EXPECT_EQ(wait.Result(), WAIT_TIMEOUT);
}

TEST_F(BlockingWaitTest, PulseOfManualResetEventReleasesOnlyTheCurrentWaiters) {
  Event event(true, false);
  AsyncWait first(event, INFINITE);
  AsyncWait second(event, INFINITE);
  clock_.AwaitSleepers(2);
  PulseEvent(event);
  EXPECT_EQ(first.Result(), WAIT_OBJECT_0);
  EXPECT_EQ(second.Result(), WAIT_OBJECT_0);
}

TEST_F(BlockingWaitTest, PulseOfAutoResetEventReleasesOneWaiter) {
  Event event(false, false);
  std::counting_semaphore<2> returned(0);
  std::atomic<int> released{0};
  const auto wait = [&] {
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    ++released;
    returned.release();
  };
  std::thread first(wait);
  std::thread second(wait);
  clock_.AwaitSleepers(2);
  PulseEvent(event);
  returned.acquire();
  clock_.AwaitSleepers(1);  // the other one is asleep again, with nothing pending
  EXPECT_EQ(released, 1);
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);

  SetEvent(event);
  first.join();
  second.join();
  EXPECT_EQ(Poll(event), WAIT_TIMEOUT);
}

TEST_F(BlockingWaitTest, WaitForAllDoesNotHoldBackObjectsFromOthers) {
  Event a(false, false);
  Event b(false, false);
  AsyncWait both({a, b}, TRUE, INFINITE);
  AsyncWait only_a(a, INFINITE);
  clock_.AwaitSleepers(2);

  SetEvent(a);
  EXPECT_EQ(only_a.Result(), WAIT_OBJECT_0);
  SetEvent(b);
  clock_.AwaitSleepers(1);
  EXPECT_FALSE(both.done());

  SetEvent(a);
  EXPECT_EQ(both.Result(), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(a), WAIT_TIMEOUT);
  EXPECT_EQ(Poll(b), WAIT_TIMEOUT);
}

TEST_F(BlockingWaitTest, ClosingAHandleDoesNotDisturbItsWaiters) {
  HANDLE closed = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  Event open(false, false);
  AsyncWait any({closed, open}, FALSE, INFINITE);
  AsyncWait timed(closed, 100);
  clock_.AwaitSleepers(2);

  ASSERT_TRUE(CloseHandle(closed));
  clock_.Advance(100);
  EXPECT_EQ(timed.Result(), WAIT_TIMEOUT);
  SetEvent(open);
  EXPECT_EQ(any.Result(), WAIT_OBJECT_0 + 1);
}

TEST(ConcurrencyTest, AutoResetEventHandsOverToExactlyOneThread) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Event token(false, true);
  Event start(true, false);
  int counter = 0;  // guarded by holding the token
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      const HANDLE handles[] = {start, token};
      EXPECT_EQ(WaitForMultipleObjects(2, handles, TRUE, INFINITE), WAIT_OBJECT_0);
      for (int round = 0; round < kRounds; ++round) {
        if (round > 0) {
          EXPECT_EQ(WaitForSingleObject(token, INFINITE), WAIT_OBJECT_0);
        }
        ++counter;
        // Churn the handle table alongside.
        HANDLE scratch = CreateEventW(nullptr, TRUE, TRUE, nullptr);
        EXPECT_EQ(Poll(scratch), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(scratch));
        SetEvent(token);
      }
    });
  }
  SetEvent(start);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

// Runs `work` on a thread of its own and waits for it to end.
template <typename Work>
void OnOtherThread(Work work) {
  std::thread(work).join();
}

TEST(MutexTest, OwnerTakesItRecursivelyOthersWaitAndCannotRelease) {
  Handle mutex(CreateMutexW(nullptr, TRUE, nullptr));
  EXPECT_EQ(Poll(mutex), WAIT_OBJECT_0);  // owned twice now
  OnOtherThread([&] {
    EXPECT_EQ(Poll(mutex), WAIT_TIMEOUT);
    EXPECT_EQ(Failure([&] { return static_cast<DWORD>(ReleaseMutex(mutex)); }),
              std::pair(0u, ERROR_NOT_OWNER));
  });
  EXPECT_TRUE(ReleaseMutex(mutex));
  OnOtherThread([&] { EXPECT_EQ(Poll(mutex), WAIT_TIMEOUT); });
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_EQ(Failure([&] { return static_cast<DWORD>(ReleaseMutex(mutex)); }),
            std::pair(0u, ERROR_NOT_OWNER));
  OnOtherThread([&] {
    EXPECT_EQ(Poll(mutex), WAIT_OBJECT_0);
    EXPECT_TRUE(ReleaseMutex(mutex));
  });
  Event event(true, true);
  EXPECT_EQ(Failure([&] { return static_cast<DWORD>(ReleaseMutex(event)); }),
            std::pair(0u, ERROR_INVALID_HANDLE));
}

TEST(MutexTest, ThreadThatEndsHoldingItAbandonsItOnce) {
  Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
  Event other(false, false);
  OnOtherThread([&] { EXPECT_EQ(Poll(mutex), WAIT_OBJECT_0); });
  const HANDLE handles[] = {other, mutex};
  EXPECT_EQ(WaitForMultipleObjects(2, handles, FALSE, 0), WAIT_ABANDONED_0 + 1);
  EXPECT_EQ(Poll(mutex), WAIT_OBJECT_0);  // owned twice by this thread, no longer abandoned
  EXPECT_TRUE(ReleaseMutex(mutex));
  EXPECT_TRUE(ReleaseMutex(mutex));

  // A mutex whose last handle is closed by its owner still follows the owner's end.
  HANDLE closed = nullptr;
  OnOtherThread([&] {
    closed = CreateMutexW(nullptr, TRUE, nullptr);
    EXPECT_TRUE(CloseHandle(closed));
  });
}

UINT HoldUntilSet(LPVOID param) {
  const auto* handles = static_cast<const HANDLE*>(param);
  EXPECT_EQ(WaitForSingleObject(handles[0], INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(handles[1], INFINITE), WAIT_OBJECT_0);
  return 0;
}

using MutexWaitTest = ManualClockTest;

TEST_F(MutexWaitTest, EndOfAFrameworkThreadAbandonsItsMutexToTheWaiter) {
  Handle mutex(CreateMutexW(nullptr, FALSE, nullptr));
  Event finish(true, false);
  const HANDLE held[] = {mutex, finish};
  CWinThread* owner = AfxBeginThread(HoldUntilSet, const_cast<HANDLE*>(held));
  ASSERT_NE(owner, nullptr);
  owner->m_bAutoDelete = FALSE;
  clock_.AwaitSleepers(1);  // the owner holds the mutex and waits
  AsyncWait waiter({mutex}, FALSE, INFINITE);
  clock_.AwaitSleepers(2);

  SetEvent(finish);
  EXPECT_EQ(WaitForSingleObject(*owner, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(waiter.Result(), WAIT_ABANDONED_0);
  delete owner;
}

// A freed mutex is not handed to a sleeping waiter; the oldest is woken to take it. When that
// wait ends otherwise (here the event, which comes first in its list), the next waiter must still
// get the mutex.
TEST_F(MutexWaitTest, AWakeUpForAFreedMutexPassesOnWhenTheWokenWaitEndsOtherwise) {
  Handle mutex(CreateMutexW(nullptr, TRUE, nullptr));
  Event event(false, false);
  AsyncWait event_or_mutex({event, mutex}, FALSE, INFINITE);
  clock_.AwaitSleepers(1);
  AsyncWait mutex_only(mutex, INFINITE);
  clock_.AwaitSleepers(2);

  ASSERT_TRUE(ReleaseMutex(mutex));
  SetEvent(event);
  // Either the first wait took the event, or it ran soon enough to take the mutex and abandoned
  // it when its thread ended.
  const DWORD first = event_or_mutex.Result();
  ASSERT_TRUE(first == WAIT_OBJECT_0 || first == WAIT_OBJECT_0 + 1) << first;
  EXPECT_EQ(mutex_only.Result(), first == WAIT_OBJECT_0 ? WAIT_OBJECT_0 : WAIT_ABANDONED_0);
}

TEST(SemaphoreTest, CountsBetweenZeroAndMaximum) {
  Handle semaphore(CreateSemaphoreW(nullptr, 1, 3, nullptr));
  EXPECT_EQ(Poll(semaphore), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(semaphore), WAIT_TIMEOUT);
  LONG previous = -1;
  EXPECT_TRUE(ReleaseSemaphore(semaphore, 3, &previous));
  EXPECT_EQ(previous, 0);
  EXPECT_EQ(Failure([&] { return static_cast<DWORD>(ReleaseSemaphore(semaphore, 1, &previous)); }),
            std::pair(0u, ERROR_TOO_MANY_POSTS));
  EXPECT_EQ(previous, 0);  // untouched by the failure
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Poll(semaphore), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(semaphore), WAIT_TIMEOUT);
  EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, nullptr));

  EXPECT_EQ(Failure([&] { return static_cast<DWORD>(ReleaseSemaphore(semaphore, 0, nullptr)); }),
            std::pair(0u, ERROR_INVALID_PARAMETER));
  for (const auto& counts : {std::pair(0, 0), std::pair(-1, 1), std::pair(2, 1)}) {
    EXPECT_EQ(Failure([&] {
                return static_cast<DWORD>(
                    CreateSemaphoreW(nullptr, counts.first, counts.second, nullptr) != nullptr);
              }),
              std::pair(0u, ERROR_INVALID_PARAMETER));
  }
}

TEST_F(BlockingWaitTest, ReleasedSemaphoreUnitsWakeAsManyWaiters) {
  Handle semaphore(CreateSemaphoreW(nullptr, 0, 2, nullptr));
  AsyncWait first(semaphore, INFINITE);
  AsyncWait second(semaphore, INFINITE);
  clock_.AwaitSleepers(2);
  EXPECT_TRUE(ReleaseSemaphore(semaphore, 2, nullptr));
  EXPECT_EQ(first.Result(), WAIT_OBJECT_0);
  EXPECT_EQ(second.Result(), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(semaphore), WAIT_TIMEOUT);
}

TEST_F(BlockingWaitTest, SixtyFourHandlesReportTheLastIndex) {
  std::vector<std::unique_ptr<Event>> events;
  std::vector<HANDLE> handles;
  for (DWORD i = 0; i < MAXIMUM_WAIT_OBJECTS; ++i) {
    events.push_back(std::make_unique<Event>(false, false));
    handles.push_back(*events.back());
  }
  AsyncWait any(handles, FALSE, INFINITE);
  AsyncWait all(handles, TRUE, INFINITE);
  clock_.AwaitSleepers(2);
  SetEvent(handles.back());
  EXPECT_EQ(any.Result(), WAIT_OBJECT_0 + MAXIMUM_WAIT_OBJECTS - 1);
  for (HANDLE handle : handles) SetEvent(handle);
  EXPECT_EQ(all.Result(), WAIT_OBJECT_0);
  for (HANDLE handle : handles) EXPECT_EQ(Poll(handle), WAIT_TIMEOUT);
}

}  // namespace
}  // namespace n7platform
