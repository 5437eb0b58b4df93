// Many threads waiting for any and for all of overlapping sets of events, mutexes and semaphores,
// checking after every wait that nothing was taken twice or lost: the test of the wait engine's
// locking between waiters and signallers.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <latch>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "n7utility/platform/kernel/KernelObjects.h"

namespace n7platform {
namespace {

constexpr int kThreads = 8;
constexpr int kWaitsPerThread = 20000;
constexpr LONG kSemaphoreUnits = 2;
constexpr std::size_t kMostPerWait = 6;
constexpr auto kWatchdog = std::chrono::seconds(120);

enum class Kind { kEvent, kMutex, kSemaphore };

// One shared object and what the threads hold of it: units taken (an auto-reset event's one
// signal, a semaphore's count) or the owning thread (a mutex).
struct Shared {
  Shared(Kind object_kind, HANDLE object, LONG most)
      : kind(object_kind), handle(object), units(most) {}

  const Kind kind;
  const HANDLE handle;
  const LONG units;  // what may be taken at once
  std::atomic<LONG> taken{0};
  std::atomic<int> owner{-1};
};

class WaitProtocolTest : public ::testing::Test {
 public:
  WaitProtocolTest() {
    for (int i = 0; i < 4; ++i) Add(Kind::kEvent, CreateEventW(nullptr, FALSE, TRUE, nullptr), 1);
    for (int i = 0; i < 4; ++i) Add(Kind::kMutex, CreateMutexW(nullptr, FALSE, nullptr), 1);
    for (int i = 0; i < 3; ++i) {
      Add(Kind::kSemaphore, CreateSemaphoreW(nullptr, kSemaphoreUnits, kSemaphoreUnits, nullptr),
          kSemaphoreUnits);
    }
  }
  ~WaitProtocolTest() override {
    for (Shared& object : objects_) CloseHandle(object.handle);
  }
  WaitProtocolTest(const WaitProtocolTest&) = delete;
  WaitProtocolTest& operator=(const WaitProtocolTest&) = delete;

 protected:
  void Add(Kind kind, HANDLE handle, LONG units) {
    ASSERT_NE(handle, nullptr);
    objects_.emplace_back(kind, handle, units);
  }

  // Records a broken invariant; the first one is reported.
  void Fail(const std::string& what) {
    const std::lock_guard lock(failures_mutex_);
    failures_.push_back(what);
  }

  // Books `object` as taken by `thread`.
  void Take(Shared& object, int thread) {
    if (object.kind == Kind::kMutex) {
      int free = -1;
      if (!object.owner.compare_exchange_strong(free, thread)) Fail("mutex owned by two threads");
      return;
    }
    const LONG taken = object.taken.fetch_add(1) + 1;
    if (taken > object.units) Fail("more taken than the object holds");
  }

  // Gives `object` back, as the thread that took it.
  void Give(Shared& object) {
    switch (object.kind) {
      case Kind::kMutex:
        object.owner = -1;
        if (!ReleaseMutex(object.handle)) Fail("release of a mutex that the wait took failed");
        break;
      case Kind::kEvent:
        object.taken.fetch_sub(1);
        SetEvent(object.handle);
        break;
      case Kind::kSemaphore:
        object.taken.fetch_sub(1);
        if (!ReleaseSemaphore(object.handle, 1, nullptr)) Fail("semaphore count above maximum");
        break;
    }
  }

  void Run(int thread) {
    start_.arrive_and_wait();
    std::mt19937 random(static_cast<unsigned>(thread) * 7919u + 1u);
    constexpr std::array<DWORD, 5> kTimeouts = {0, 0, 1, INFINITE, INFINITE};
    for (int wait = 0; wait < kWaitsPerThread; ++wait) {
      std::vector<Shared*> set = PickSet(random);
      const bool wait_all = random() % 2 == 0;
      const DWORD timeout = kTimeouts[random() % kTimeouts.size()];
      HANDLE handles[kMostPerWait];
      for (std::size_t i = 0; i < set.size(); ++i) handles[i] = set[i]->handle;
      const auto count = static_cast<DWORD>(set.size());
      const DWORD result = WaitForMultipleObjects(count, handles, wait_all, timeout);
      if (result == WAIT_TIMEOUT) {
        if (timeout == INFINITE) Fail("a wait without a timeout timed out");
        continue;
      }
      if (result >= WAIT_OBJECT_0 + count) {
        Fail("unexpected wait result " + std::to_string(result));
        continue;
      }
      if (!wait_all) set = {set[result - WAIT_OBJECT_0]};
      for (Shared* object : set) Take(*object, thread);
      for (Shared* object : set) Give(*object);
    }
  }

  // One to six distinct objects in random order.
  std::vector<Shared*> PickSet(std::mt19937& random) {
    std::vector<Shared*> pool;
    for (Shared& object : objects_) pool.push_back(&object);
    std::shuffle(pool.begin(), pool.end(), random);
    pool.resize(1 + random() % kMostPerWait);
    return pool;
  }

  // After the run every object is as it was created: each event signalled once, each mutex free,
  // each semaphore at its maximum.
  void ExpectInitialState() {
    for (Shared& shared : objects_) {
      Shared* object = &shared;
      LONG available = 0;
      while (available <= object->units &&
             WaitForSingleObject(object->handle, 0) == WAIT_OBJECT_0) {
        ++available;
        if (object->kind == Kind::kMutex) break;  // the owner could take it again
      }
      EXPECT_EQ(available, object->units);
      if (object->kind == Kind::kMutex) {
        EXPECT_TRUE(ReleaseMutex(object->handle));
      }
    }
  }

  std::latch start_{kThreads};  // all threads begin together
  std::deque<Shared> objects_;  // never moved: threads hold pointers
  std::mutex failures_mutex_;
  std::vector<std::string> failures_;
};

TEST_F(WaitProtocolTest, RandomWaitsForAnyAndAllKeepEveryObjectConsistent) {
  std::mutex mutex;
  std::condition_variable finished;
  int running = kThreads;  // guarded by mutex
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      Run(i);
      const std::lock_guard lock(mutex);
      --running;
      finished.notify_all();
    });
  }
  {
    std::unique_lock lock(mutex);
    if (!finished.wait_for(lock, kWatchdog, [&] { return running == 0; })) {
      // A thread stuck in a wait cannot be joined: end the process as a failure.
      std::fprintf(stderr, "watchdog: %d threads still waiting\n", running);
      const std::lock_guard failures_lock(failures_mutex_);
      if (!failures_.empty()) {
        std::fprintf(stderr, "%zu broken invariants, first: %s\n", failures_.size(),
                     failures_.front().c_str());
      }
      std::abort();
    }
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(failures_.empty()) << failures_.size()
                                 << " broken invariants, first: " << failures_.front();
  ExpectInitialState();
}

}  // namespace
}  // namespace n7platform
