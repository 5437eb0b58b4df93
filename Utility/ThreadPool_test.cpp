#include "n7utility/Utility/ThreadPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "n7utility/Utility/ExceptionWrappers.h"
#include "n7utility/platform/framework/ComError.h"
#include "n7utility/platform/kernel/ClockFixture_internal.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/LeakCheck_test.h"

namespace {

using n7platform::LeakCheck;

// A pool that lets a test wait for threads going idle and counts failed selections.
class ObservedPool : public CThreadPool {
 public:
  void ReleaseThread(APooledThread* thread) override {
    CThreadPool::ReleaseThread(thread);
    releases_.release();
  }
  // Blocks until `count` more releases have happened since the last call.
  void AwaitReleases(int count) {
    for (int i = 0; i < count; ++i) releases_.acquire();
  }

  std::atomic<int> selection_failures = 0;

 protected:
  void SelectionFailure() override { ++selection_failures; }

 private:
  std::counting_semaphore<> releases_{0};
};

// A pooled thread without a thread, for the pool's bookkeeping alone.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): never deleted through the base
class FakeThread final : public APooledThread {
 public:
  CWinThread* GetWinThread() override { return nullptr; }
  void Quit() override { ++quits; }
  int quits = 0;
};

TEST(ThreadPoolTest, SelectsTheMostRecentlyReleasedThreadAndCountsEachOnce) {
  ObservedPool pool;
  FakeThread a;
  FakeThread b;
  pool.AddThread(&a);
  pool.AddThread(&b);
  EXPECT_EQ(pool.QueryNumThreads(), 2);
  EXPECT_EQ(pool.SelectThread(0), nullptr);
  EXPECT_EQ(pool.selection_failures, 1);

  pool.ReleaseThread(&a);
  pool.ReleaseThread(&b);
  pool.ReleaseThread(&b);  // already idle: neither a second entry nor a second count
  EXPECT_EQ(pool.SelectThread(0), &b);
  EXPECT_EQ(pool.SelectThread(0), &a);
  EXPECT_EQ(pool.SelectThread(0), nullptr);
  EXPECT_EQ(pool.selection_failures, 2);
  EXPECT_EQ(pool.QueryNumThreads(), 2);  // busy threads stay registered

  // A thread removed while idle leaves its count behind: a selection then finds the list empty.
  pool.ReleaseThread(&a);
  pool.RemoveThread(&a);
  EXPECT_EQ(pool.QueryNumThreads(), 1);
  try {
    pool.SelectThread(0);
    ADD_FAILURE() << "no exception";
  } catch (CInvalidArgException* exception) {
    exception->Delete();
  }
  pool.Shutdown(0);
  EXPECT_EQ(a.quits, 0);
  EXPECT_EQ(b.quits, 1);
  EXPECT_EQ(pool.QueryNumThreads(), 0);
}

using TimedSelectionTest = n7platform::ManualClockTest;

TEST_F(TimedSelectionTest, WaitsForAThreadToGoIdleOrForTheTimeout) {
  ObservedPool pool;
  FakeThread a;
  pool.AddThread(&a);
  APooledThread* selected = &a;
  std::thread timing_out([&] { selected = pool.SelectThread(500); });
  clock_.AwaitSleepers(1);
  clock_.Advance(499);
  clock_.AwaitSleepers(1);
  clock_.Advance(1);
  timing_out.join();
  EXPECT_EQ(selected, nullptr);

  std::thread waiting([&] { selected = pool.SelectThread(500); });
  clock_.AwaitSleepers(1);
  pool.ReleaseThread(&a);
  waiting.join();
  EXPECT_EQ(selected, &a);
  EXPECT_EQ(pool.selection_failures, 2);
  pool.RemoveThread(&a);
}

// A worker whose units of work are the test's functions, run in turn; the last one repeats.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): deletes itself, as workers do
class ScriptedWorker : public APooledWorkerThread {
 public:
  using Work = std::function<unsigned int()>;
  ScriptedWorker(CThreadPool& pool, std::vector<Work> script, std::atomic<int>& deletions)
      : APooledWorkerThread(pool), script_(std::move(script)), deletions_(deletions) {}

  // Written by the worker thread; read by the test once the worker is idle again.
  std::vector<std::string> exceptions_seen;

 protected:
  ~ScriptedWorker() override { ++deletions_; }

  unsigned int OnWork() override {
    const Work& work = script_[std::min(next_++, script_.size() - 1)];
    return work();
  }
  void OnException(CException* exception) override {
    exceptions_seen.push_back(Describe(exception));
    APooledWorkerThread::OnException(exception);
  }

 private:
  static std::string Describe(CException* exception) {
    if (exception == nullptr) return "null";
    if (auto* com = dynamic_cast<CComException*>(exception)) {
      // The wrapper lives only for the call: Delete() must leave it alone.
      com->Delete();
      const _com_error& error = *com;
      return "COM " + std::to_string(static_cast<std::uint32_t>(error.Error()));
    }
    return "framework";
  }

  std::vector<Work> script_;
  std::size_t next_ = 0;
  std::atomic<int>& deletions_;
};

HANDLE DuplicateOf(HANDLE handle) {
  HANDLE duplicate = nullptr;
  DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &duplicate, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  return duplicate;
}

TEST(PooledWorkerTest, SurvivesThrowingWorkAndEndsWithItsLastResult) {
  const LeakCheck leaks;
  std::atomic<int> deletions = 0;
  {
    ObservedPool pool;
    auto* worker = new ScriptedWorker(
        pool,
        {[]() -> unsigned int { throw new CResourceException(); },
         []() -> unsigned int { throw _com_error(E_FAIL); },
         []() -> unsigned int { throw std::runtime_error("not a framework exception"); },
         [] { return 7u; }},
        deletions);
    ASSERT_TRUE(worker->Start(THREAD_PRIORITY_NORMAL, 256 * 1024));
    const HANDLE thread = DuplicateOf(worker->GetWinThread()->m_hThread);
    pool.AwaitReleases(1);
    EXPECT_EQ(pool.QueryNumThreads(), 1);

    for (int unit = 0; unit < 4; ++unit) {
      ASSERT_EQ(pool.SelectThread(0), worker);
      worker->Continue();
      pool.AwaitReleases(1);  // back on the idle list, exception or not
    }
    EXPECT_EQ(worker->exceptions_seen,
              (std::vector<std::string>{"framework", "COM 2147500037", "null"}));

    worker->Quit();
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7u);
    EXPECT_EQ(deletions, 1);
    EXPECT_EQ(pool.QueryNumThreads(), 0);
    CloseHandle(thread);
  }
  leaks.ExpectNoLeaks();
}

TEST(PooledWorkerTest, ShutdownEndsMoreThreadsThanOneWaitCovers) {
  constexpr int kWorkers = 2 * MAXIMUM_WAIT_OBJECTS + 3;
  const LeakCheck leaks;
  std::atomic<int> deletions = 0;
  {
    ObservedPool pool;
    for (int i = 0; i < kWorkers; ++i) {
      auto* worker = new ScriptedWorker(pool, {[] { return 0u; }}, deletions);
      ASSERT_TRUE(worker->Start(THREAD_PRIORITY_NORMAL, 64 * 1024));
    }
    pool.AwaitReleases(kWorkers);
    EXPECT_EQ(pool.QueryNumThreads(), kWorkers);
    // A selected worker is off the idle list but still registered: it is told to quit too.
    ASSERT_NE(pool.SelectThread(0), nullptr);
    pool.Shutdown(INFINITE);
    EXPECT_EQ(deletions, kWorkers);
    EXPECT_EQ(pool.QueryNumThreads(), 0);
  }
  leaks.ExpectNoLeaks();
}

// An interface thread that handles WM_USER: wParam 1 throws, wParam 2 ends the busy spell.
class ScriptedInterfaceThread : public APooledInterfaceThread {
 public:
  explicit ScriptedInterfaceThread(CThreadPool& pool) : APooledInterfaceThread(&pool) {}

  // Written by the thread; read by the test while the thread waits for a message.
  int handled = 0;
  std::vector<bool> exceptions_seen;

 protected:
  BOOL PreTranslateMessage(MSG* msg) override {
    if (msg->message != WM_USER) return FALSE;
    ++handled;
    if (msg->wParam == 1) throw std::runtime_error("handler failed");
    if (msg->wParam == 2) SetBusy(FALSE);
    return TRUE;
  }
  void OnException(CException* exception) override {
    exceptions_seen.push_back(exception != nullptr);
    APooledInterfaceThread::OnException(exception);
  }
};

using PooledInterfaceTest = n7platform::ManualClockTest;

TEST_F(PooledInterfaceTest, BusyThreadStaysOffTheIdleListUntilItIsDone) {
  const LeakCheck leaks;
  {
    ObservedPool pool;
    ScriptedInterfaceThread thread(pool);
    thread.m_bAutoDelete = FALSE;
    ASSERT_TRUE(thread.CreateThread());
    pool.AwaitReleases(1);
    ASSERT_EQ(pool.SelectThread(0), &thread);

    thread.SetBusy(TRUE);
    ASSERT_TRUE(thread.PostThreadMessage(WM_USER, 0, 0));
    clock_.AwaitSleepers(1);  // handled, idle pass done, waiting for the next message
    EXPECT_EQ(thread.handled, 1);
    EXPECT_EQ(pool.SelectThread(0), nullptr);

    ASSERT_TRUE(thread.PostThreadMessage(WM_USER, 2, 0));
    pool.AwaitReleases(1);
    ASSERT_EQ(pool.SelectThread(0), &thread);

    // A failing handler does not end the thread, which goes idle again.
    ASSERT_TRUE(thread.PostThreadMessage(WM_USER, 1, 0));
    pool.AwaitReleases(1);
    EXPECT_EQ(thread.exceptions_seen, std::vector<bool>{false});

    pool.Shutdown(INFINITE);
    DWORD code = STILL_ACTIVE;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(thread.handled, 3);
  }
  leaks.ExpectNoLeaks();
}

}  // namespace
