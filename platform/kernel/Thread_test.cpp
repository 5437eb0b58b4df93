#include "n7utility/platform/kernel/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "n7utility/platform/kernel/ClockFixture_internal.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/LeakCheck_test.h"

namespace n7platform {
namespace {

struct Job {
  HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD thread_id = 0;
  int value = 0;  // written by the test before the thread is resumed
  int seen = 0;
  std::size_t stack_size = 0;

  Job() = default;
  ~Job() { CloseHandle(go); }
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;
};

UINT WaitForGo(LPVOID param) {
  auto* job = static_cast<Job*>(param);
  job->thread_id = GetCurrentThreadId();
  WaitForSingleObject(job->go, INFINITE);
  return 42;
}

UINT Inspect(LPVOID param) {
  auto* job = static_cast<Job*>(param);
  job->seen = job->value;
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
    pthread_attr_getstacksize(&attributes, &job->stack_size);
    pthread_attr_destroy(&attributes);
  }
  return 0;
}

// Starts `proc` suspended and without auto-delete, so that the test owns the CWinThread.
std::unique_ptr<CWinThread> BeginOwned(AFX_THREADPROC proc, Job& job, UINT stack_size = 0,
                                       int priority = THREAD_PRIORITY_NORMAL) {
  CWinThread* thread = AfxBeginThread(proc, &job, priority, stack_size, CREATE_SUSPENDED);
  if (thread != nullptr) thread->m_bAutoDelete = FALSE;
  return std::unique_ptr<CWinThread>(thread);
}

TEST(ThreadTest, HandleIsSignalledWhenTheProcedureReturns) {
  Job job;
  auto thread = BeginOwned(WaitForGo, job);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(thread->ResumeThread(), 1u);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeThread(*thread, &code));
  EXPECT_EQ(code, STILL_ACTIVE);
  EXPECT_EQ(WaitForSingleObject(*thread, 0), WAIT_TIMEOUT);

  SetEvent(job.go);
  EXPECT_EQ(WaitForSingleObject(*thread, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(*thread, 0), WAIT_OBJECT_0);  // stays signalled
  EXPECT_TRUE(GetExitCodeThread(*thread, &code));
  EXPECT_EQ(code, 42u);
  EXPECT_EQ(job.thread_id, thread->m_nThreadID);
  EXPECT_NE(job.thread_id, GetCurrentThreadId());
  EXPECT_EQ(thread->ResumeThread(), 0u);

  // A thread handle is not an event, nor an event handle a thread.
  EXPECT_FALSE(SetEvent(*thread));
  EXPECT_FALSE(GetExitCodeThread(job.go, &code));
  const HANDLE handle = *thread;
  thread.reset();
  EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
}

TEST(ThreadTest, SuspendedThreadRunsAfterResumeOnTheStackAskedFor) {
  constexpr UINT kStackSize = 16u << 20;
  Job job;
  auto thread = BeginOwned(Inspect, job, kStackSize, THREAD_PRIORITY_BELOW_NORMAL);
  ASSERT_NE(thread, nullptr);
  job.value = 7;  // a data race, unless the thread is really held until the resume

  EXPECT_EQ(thread->GetThreadPriority(), THREAD_PRIORITY_BELOW_NORMAL);
  EXPECT_TRUE(thread->SetThreadPriority(THREAD_PRIORITY_HIGHEST));
  SetLastError(ERROR_SUCCESS);
  EXPECT_FALSE(thread->SetThreadPriority(99));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(thread->GetThreadPriority(), THREAD_PRIORITY_HIGHEST);

  EXPECT_EQ(thread->ResumeThread(), 1u);
  EXPECT_EQ(WaitForSingleObject(*thread, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(job.seen, 7);
  EXPECT_GE(job.stack_size, kStackSize);
}

TEST(ThreadTest, SuspensionsAddUpUntilTheThreadRuns) {
  Job job;
  auto thread = BeginOwned(Inspect, job);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(thread->SuspendThread(), 1u);
  EXPECT_EQ(thread->ResumeThread(), 2u);
  job.value = 9;  // a data race, unless one suspension still holds the thread
  EXPECT_EQ(thread->ResumeThread(), 1u);
  EXPECT_EQ(WaitForSingleObject(*thread, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(job.seen, 9);

  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(thread->SuspendThread(), static_cast<DWORD>(-1));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
}

TEST(ThreadTest, ObjectWithoutAThreadRefusesThreadCalls) {
  CWinThread never(Inspect, nullptr);
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(never.ResumeThread(), static_cast<DWORD>(-1));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(never.GetThreadPriority(), THREAD_PRIORITY_ERROR_RETURN);
  EXPECT_FALSE(never.SetThreadPriority(THREAD_PRIORITY_NORMAL));
}

// Reports its own deletion.
class ReportingThread : public CWinThread {
 public:
  ReportingThread(AFX_THREADPROC proc, LPVOID param, std::binary_semaphore& deleted)
      : CWinThread(proc, param), deleted_(deleted) {}
  ~ReportingThread() override { deleted_.release(); }

 private:
  std::binary_semaphore& deleted_;
};

using AutoDeleteTest = ManualClockTest;

TEST_F(AutoDeleteTest, ThreadDeletesItselfAndItsWaiterStillSeesTheEnd) {
  Job job;
  std::binary_semaphore deleted(0);
  auto* thread = new ReportingThread(Inspect, &job, deleted);
  ASSERT_TRUE(thread->CreateThread(CREATE_SUSPENDED));
  const HANDLE handle = *thread;
  DWORD result = WAIT_FAILED;
  std::thread waiter([&] { result = WaitForSingleObject(handle, INFINITE); });
  clock_.AwaitSleepers(1);

  thread->ResumeThread();  // from here on the thread may delete itself at any moment
  deleted.acquire();
  waiter.join();
  EXPECT_EQ(result, WAIT_OBJECT_0);
}

TEST(MessageQueueTest, FiltersPickMessagesAndQuitComesLast) {
  MSG msg{};
  EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));  // creates the queue
  const DWORD self = GetCurrentThreadId();
  ASSERT_TRUE(PostThreadMessage(self, WM_USER + 1, 10, -1));
  PostQuitMessage(5);
  ASSERT_TRUE(PostThreadMessage(self, WM_USER + 2, 20, 0));

  EXPECT_TRUE(PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE));
  EXPECT_EQ(msg.message, WM_USER + 1);
  EXPECT_TRUE(PeekMessage(&msg, nullptr, WM_USER + 2, WM_USER + 2, PM_REMOVE));
  EXPECT_EQ(msg.message, WM_USER + 2);
  EXPECT_EQ(msg.wParam, 20u);
  // Nothing else in the range: the pending quit matches every filter.
  EXPECT_TRUE(PeekMessage(&msg, nullptr, WM_USER + 2, WM_USER + 2, PM_NOREMOVE));
  EXPECT_EQ(msg.message, WM_QUIT);
  EXPECT_EQ(GetMessage(&msg, nullptr, 0, 0), TRUE);
  EXPECT_EQ(msg.message, WM_USER + 1);
  EXPECT_EQ(msg.lParam, -1);
  EXPECT_EQ(GetMessage(&msg, nullptr, 0, 0), FALSE);
  EXPECT_EQ(msg.message, WM_QUIT);
  EXPECT_EQ(msg.wParam, 5u);
  EXPECT_FALSE(PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE));

  EXPECT_EQ(GetMessage(nullptr, nullptr, 0, 0), -1);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(MessageQueueTest, FullQueueRefusesPosts) {
  MSG msg{};
  PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
  const DWORD self = GetCurrentThreadId();
  int posted = 0;
  while (PostThreadMessage(self, WM_USER, 0, 0)) ++posted;
  EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_QUOTA);
  EXPECT_EQ(posted, 10000);
  while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE)) --posted;
  EXPECT_EQ(posted, 0);
}

// A message-loop thread that wants three idle passes each time its queue runs empty, and ends on
// the second message it handles.
class LoopThread : public CWinThread {
 public:
  BOOL InitInstance() override {
    started_as_current = AfxGetThread() == this;
    return TRUE;
  }
  BOOL OnIdle(LONG count) override {
    idle_counts.push_back(count);
    return count < 2 ? TRUE : CWinThread::OnIdle(count);
  }
  BOOL PreTranslateMessage(MSG* msg) override {
    handled.push_back(msg->message);
    if (handled.size() == 2) PostQuitMessage(static_cast<int>(msg->wParam));
    return TRUE;
  }

  // Written by the thread; read by the test only while the thread waits for a message.
  bool started_as_current = false;
  std::vector<LONG> idle_counts;
  std::vector<UINT> handled;
};

// Ends its message loop at once with exit code 3.
class QuitAtOnceThread : public CWinThread {
  DECLARE_DYNCREATE(QuitAtOnceThread)

 public:
  BOOL InitInstance() override {
    PostQuitMessage(3);
    return TRUE;
  }
};
IMPLEMENT_DYNCREATE(QuitAtOnceThread, CWinThread)

TEST(ThreadTest, BeginsAThreadOfARuntimeClass) {
  const LeakCheck leaks;
  CWinThread* thread =
      AfxBeginThread(RUNTIME_CLASS(QuitAtOnceThread), THREAD_PRIORITY_NORMAL, 0, CREATE_SUSPENDED);
  ASSERT_NE(thread, nullptr);
  EXPECT_TRUE(thread->IsKindOf(RUNTIME_CLASS(QuitAtOnceThread)));
  HANDLE handle = nullptr;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), *thread, GetCurrentProcess(), &handle, 0, FALSE,
                              DUPLICATE_SAME_ACCESS));
  thread->ResumeThread();  // it deletes itself as it ends
  EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeThread(handle, &code));
  EXPECT_EQ(code, 3u);
  EXPECT_TRUE(CloseHandle(handle));
  EXPECT_FALSE(DuplicateHandle(GetCurrentProcess(), handle, GetCurrentProcess(), &handle, 0, FALSE,
                               DUPLICATE_SAME_ACCESS));

  // A class that cannot be created by name begins nothing.
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(AfxBeginThread(RUNTIME_CLASS(CWinThread)), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  leaks.ExpectNoLeaks();
}

using MessageLoopTest = ManualClockTest;

TEST_F(MessageLoopTest, RunsIdlePassesWhileTheQueueIsEmptyAndEndsAtQuit) {
  const LeakCheck leaks;
  {
    LoopThread thread;
    thread.m_bAutoDelete = FALSE;
    ASSERT_TRUE(thread.CreateThread(CREATE_SUSPENDED));
    // The queue exists from the start, and the thread waits for messages in the wait engine.
    ASSERT_TRUE(thread.PostThreadMessage(WM_USER, 0, 0));
    thread.ResumeThread();
    clock_.AwaitSleepers(1);
    EXPECT_TRUE(thread.started_as_current);
    EXPECT_EQ(thread.handled, std::vector<UINT>{WM_USER});
    // Idle processing ran to its end once the queue was empty, and not before the message.
    EXPECT_EQ(thread.idle_counts, (std::vector<LONG>{0, 1, 2}));

    ASSERT_TRUE(thread.PostThreadMessage(WM_USER + 1, 7, 0));
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(thread.handled, (std::vector<UINT>{WM_USER, WM_USER + 1}));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 7u);
    // The queue went with the thread.
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(thread.PostThreadMessage(WM_USER, 0, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_THREAD_ID);
  }
  leaks.ExpectNoLeaks();
}

}  // namespace
}  // namespace n7platform
