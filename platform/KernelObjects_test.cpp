#include "platform/KernelObjects.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "platform/ClockFixture_internal.h"
#include "platform/SyncObjects.h"

namespace n7platform {
namespace {

// An event handle, closed at the end of the scope.
class Event {
 public:
  Event(bool manual_reset, bool initial_state)
      : handle_(CreateEventW(nullptr, manual_reset, initial_state, nullptr)) {}
  ~Event() { CloseHandle(handle_); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  operator HANDLE() const { return handle_; }  // NOLINT(google-explicit-constructor)

 private:
  HANDLE handle_;
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
  for (HANDLE bad : {closed, static_cast<HANDLE>(nullptr), static_cast<HANDLE>(&local),
                     reinterpret_cast<HANDLE>(~std::uintptr_t{0})}) {
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

TEST(WaitTest, WaitForAnyTakesTheLowestSignalledIndexOnly) {
  Event e0(false, false);
  Event e1(false, true);
  Event e2(false, true);
  const HANDLE handles[] = {e0, e1, e2};
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 2);
  EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_TIMEOUT);
}

TEST(WaitTest, WaitForAllTakesAllOrNone) {
  Event a(false, true);
  Event b(false, false);
  const HANDLE handles[] = {a, b};
  EXPECT_EQ(WaitForMultipleObjects(2, handles, TRUE, 0), WAIT_TIMEOUT);
  EXPECT_EQ(Poll(a), WAIT_OBJECT_0);  // still set

  SetEvent(a);
  SetEvent(b);
  EXPECT_EQ(WaitForMultipleObjects(2, handles, TRUE, 0), WAIT_OBJECT_0);
  EXPECT_EQ(Poll(a), WAIT_TIMEOUT);
  EXPECT_EQ(Poll(b), WAIT_TIMEOUT);
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

  AsyncWait later(event, 10);
  clock_.AwaitSleepers(1);
  clock_.Advance(10);
  EXPECT_EQ(later.Result(), WAIT_TIMEOUT);
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

// A CSyncObject over an event, to check the base class's Lock and its ownership of the handle.
class EventSyncObject : public CSyncObject {
 public:
  EventSyncObject() : CSyncObject(nullptr) {
    m_hObject = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  }
  BOOL Unlock() override { return SetEvent(m_hObject); }
};

TEST(SyncObjectTest, LockWaitsOnTheKernelObjectAndTheDestructorClosesIt) {
  auto object = std::make_unique<EventSyncObject>();
  const HANDLE handle = *object;
  EXPECT_FALSE(object->Lock(0));
  object->Unlock();
  EXPECT_TRUE(object->Lock(0));
  object.reset();
  EXPECT_EQ(Poll(handle), WAIT_FAILED);
}

TEST(ConcurrencyTest, AutoResetEventHandsOverToExactlyOneThread) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Event token(false, true);
  Event start(true, false);
  int counter = 0;  // guarded by holding the token
  std::vector<std::thread> threads;
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

}  // namespace
}  // namespace n7platform
