#include "n7utility/Utility/ThreadPool.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "n7utility/Utility/ExceptionWrappers.h"
#include "n7utility/core/safe_cast.h"
#include "n7utility/platform/framework/ComError.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/Time.h"

namespace n7utility::internal {
namespace {

// Holds the pool mutex for a scope, either taking it or adopting it from a wait that took it.
class SCOPED_CAPABILITY PoolLock {
 public:
  explicit PoolLock(PoolMutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.Acquire(); }
  struct Adopt {};
  PoolLock(PoolMutex& mutex, Adopt /*taken*/) ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.AssumeTaken();
  }
  ~PoolLock() RELEASE() { mutex_.Release(); }
  PoolLock(const PoolLock&) = delete;
  PoolLock& operator=(const PoolLock&) = delete;

 private:
  PoolMutex& mutex_;
};

// A failed wait is a programming error worth a note while debugging, and nothing in production.
void TraceWaitFailure([[maybe_unused]] int line) {
#ifndef NDEBUG
  std::fprintf(stderr, "%s(%d) : WaitForMultipleObjects failure code: 0x%lX\n",
               "Utility/ThreadPool", line, static_cast<unsigned long>(GetLastError()));
#endif
}

// An unsigned long is wider here than the 32-bit timeouts of the waits: anything from INFINITE
// up means no limit.
DWORD ToWaitTimeout(unsigned long milliseconds) {
  return milliseconds >= INFINITE ? INFINITE : static_cast<DWORD>(milliseconds);
}

// Waits for all of `handles` for at most `timeout` milliseconds in total, at most
// MAXIMUM_WAIT_OBJECTS at a time.
void WaitForAll(const std::vector<HANDLE>& handles, DWORD timeout) {
  const auto count = n7core::safe_cast<DWORD>(handles.size());
  const ULONGLONG start = GetTickCount64();
  for (DWORD first = 0; first < count; first += MAXIMUM_WAIT_OBJECTS) {
    DWORD left = timeout;
    if (timeout != INFINITE) {
      const ULONGLONG elapsed = GetTickCount64() - start;
      left = elapsed >= timeout ? 0 : timeout - static_cast<DWORD>(elapsed);
    }
    const DWORD batch = std::min(count - first, MAXIMUM_WAIT_OBJECTS);
    if (WaitForMultipleObjects(batch, &handles[first], TRUE, left) == WAIT_TIMEOUT) return;
  }
}

// A handle to `thread`'s framework thread that stays valid after an auto-deleting CWinThread
// closes its own; null when there is none.
HANDLE DuplicateThreadHandle(APooledThread& thread) {
  CWinThread* win_thread = thread.GetWinThread();
  HANDLE duplicate = nullptr;
  if (win_thread == nullptr ||
      !DuplicateHandle(GetCurrentProcess(), win_thread->m_hThread, GetCurrentProcess(), &duplicate,
                       0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return nullptr;
  }
  return duplicate;
}

// Runs one pass of a pooled thread's work. An exception it lets out is handed to `on_exception`
// in the form the pooled threads' OnException takes; the pass then counts as not completed.
template <typename Pass, typename Handler>
bool RunPass(Pass&& pass, Handler&& on_exception) {
  try {
    pass();
    return true;
  } catch (CException* exception) {
    on_exception(exception);
  } catch (const _com_error& error) {
    // Lives on this stack for the call only, so a handler's Delete() must leave it alone.
    CComException wrapped(error, FALSE);
    on_exception(&wrapped);
  } catch (abi::__forced_unwind&) {
    throw;  // the thread is being cancelled: let it unwind
  } catch (...) {
    on_exception(nullptr);
  }
  return false;
}

}  // namespace
}  // namespace n7utility::internal

using n7utility::internal::PoolLock;

// ---------------------------------------------------------------------------------------------
// CThreadPool

CThreadPool::CThreadPool() : m_idleSemaphore(0, 0x7FFFFFFF) {}

CThreadPool::~CThreadPool() { CThreadPool::Shutdown(INFINITE); }

void CThreadPool::AddThread(APooledThread* thread) {
  PoolLock lock(m_mutex);
  m_allThreads.push_front(thread);
}

void CThreadPool::RemoveThread(APooledThread* thread) {
  PoolLock lock(m_mutex);
  const auto idle = std::find(m_idleThreads.begin(), m_idleThreads.end(), thread);
  if (idle != m_idleThreads.end()) m_idleThreads.erase(idle);
  const auto registered = std::find(m_allThreads.begin(), m_allThreads.end(), thread);
  if (registered != m_allThreads.end()) m_allThreads.erase(registered);
}

void CThreadPool::ReleaseThread(APooledThread* thread) {
  PoolLock lock(m_mutex);
  if (std::find(m_idleThreads.begin(), m_idleThreads.end(), thread) != m_idleThreads.end()) return;
  m_idleThreads.push_front(thread);
  m_idleSemaphore.Unlock(1);
}

APooledThread* CThreadPool::SelectThread(unsigned long timeout) {
  const DWORD result = WaitForIdleThread(timeout);
  switch (result) {
    case WAIT_OBJECT_0:
    case WAIT_OBJECT_0 + 1: {
      PoolLock lock(m_mutex, PoolLock::Adopt{});
      return TakeIdleHead();
    }
    case WAIT_ABANDONED_0:
    case WAIT_ABANDONED_0 + 1: {
      // Taken, but what the lists say can no longer be trusted.
      PoolLock lock(m_mutex, PoolLock::Adopt{});
      return nullptr;
    }
    default:
      return nullptr;
  }
}

DWORD CThreadPool::WaitForIdleThread(unsigned long timeout) {
  const HANDLE both[] = {m_mutex, m_idleSemaphore};
  DWORD result = WaitForMultipleObjects(2, both, TRUE, 0);
  if (result == WAIT_TIMEOUT) {
    SelectionFailure();
    result = WaitForMultipleObjects(2, both, TRUE, n7utility::internal::ToWaitTimeout(timeout));
  }
  if (result == WAIT_FAILED) n7utility::internal::TraceWaitFailure(__LINE__);
  return result;
}

APooledThread* CThreadPool::TakeIdleHead() {
  if (m_idleThreads.empty()) AfxThrowInvalidArgException();
  APooledThread* thread = m_idleThreads.front();
  m_idleThreads.pop_front();
  return thread;
}

void CThreadPool::Shutdown(unsigned long timeout) {
  std::vector<HANDLE> handles;
  {
    PoolLock lock(m_mutex);
    m_idleThreads.clear();
    handles.reserve(m_allThreads.size());
    for (APooledThread* thread : m_allThreads) {
      if (HANDLE handle = n7utility::internal::DuplicateThreadHandle(*thread)) {
        handles.push_back(handle);
      }
      thread->Quit();
    }
    m_allThreads.clear();
  }
  // Exiting threads take the mutex to leave the pool, so the wait comes after it is released.
  n7utility::internal::WaitForAll(handles, n7utility::internal::ToWaitTimeout(timeout));
  for (HANDLE handle : handles) CloseHandle(handle);
}

int CThreadPool::QueryNumThreads() const {
  PoolLock lock(m_mutex);
  return static_cast<int>(m_allThreads.size());
}

void CThreadPool::SelectionFailure() {}

// ---------------------------------------------------------------------------------------------
// APooledWorkerThread

APooledWorkerThread::APooledWorkerThread(CThreadPool& pool) : m_pool(pool) {}

APooledWorkerThread::~APooledWorkerThread() {
  if (m_pThread != nullptr) m_pool.RemoveThread(this);
}

CWinThread* APooledWorkerThread::GetWinThread() { return m_pThread; }

void APooledWorkerThread::Quit() {
  m_quit = true;
  m_wakeEvent.SetEvent();
}

BOOL APooledWorkerThread::Start(int priority, unsigned int stack_size,
                                SECURITY_ATTRIBUTES* security) {
  m_quit = false;
  CWinThread* thread =
      AfxBeginThread(ThreadEntry, this, priority, stack_size, CREATE_SUSPENDED, security);
  if (thread == nullptr) return FALSE;
  m_pThread = thread;
  thread->ResumeThread();
  return TRUE;
}

void APooledWorkerThread::Continue() { m_wakeEvent.SetEvent(); }

unsigned int APooledWorkerThread::ThreadEntry(void* param) {
  try {
    return static_cast<APooledWorkerThread*>(param)->ThreadBody();
  } catch (CException* exception) {
    exception->Delete();
  } catch (abi::__forced_unwind&) {
    throw;
  } catch (...) {
  }
  return 0xFFFFFFFF;
}

unsigned int APooledWorkerThread::ThreadBody() {
  unsigned int result = OnEntry();
  bool quitting = false;
  const auto pass = [&] {
    OnLoop();
    WaitForSingleObject(m_wakeEvent, INFINITE);
    if (m_quit) {
      quitting = true;
      return;
    }
    result = OnWork();
  };
  const auto on_exception = [this](CException* exception) { OnException(exception); };
  while (!quitting) n7utility::internal::RunPass(pass, on_exception);
  return OnExit(result);
}

unsigned int APooledWorkerThread::OnEntry() {
  m_pool.AddThread(this);
  return 0;
}

void APooledWorkerThread::OnLoop() { m_pool.ReleaseThread(this); }

unsigned int APooledWorkerThread::OnExit(unsigned int exit_code) {
  m_pool.RemoveThread(this);
  Delete();
  return exit_code;
}

void APooledWorkerThread::OnException(CException* exception) {
  if (exception != nullptr) exception->Delete();
}

void APooledWorkerThread::Delete() { delete this; }

// ---------------------------------------------------------------------------------------------
// APooledInterfaceThread

IMPLEMENT_DYNAMIC(APooledInterfaceThread, CWinThread)

APooledInterfaceThread::APooledInterfaceThread(CThreadPool* pool) : m_pPool(pool) {}

APooledInterfaceThread::~APooledInterfaceThread() = default;

CWinThread* APooledInterfaceThread::GetWinThread() { return this; }

void APooledInterfaceThread::Quit() { ::PostThreadMessage(m_nThreadID, WM_QUIT, 0, 0); }

BOOL APooledInterfaceThread::InitInstance() {
  if (m_pPool != nullptr) m_pPool->AddThread(this);
  return TRUE;
}

int APooledInterfaceThread::Run() {
  int result = 0;
  const auto loop = [&] { result = CWinThread::Run(); };
  const auto on_exception = [this](CException* exception) { OnException(exception); };
  while (!n7utility::internal::RunPass(loop, on_exception)) {
  }
  return result;
}

BOOL APooledInterfaceThread::OnIdle(LONG count) {
  if (count == 0 && !m_bBusy && m_pPool != nullptr) m_pPool->ReleaseThread(this);
  return CWinThread::OnIdle(count);
}

int APooledInterfaceThread::ExitInstance() {
  if (m_pPool != nullptr) {
    m_pPool->RemoveThread(this);
    m_pPool = nullptr;
  }
  return CWinThread::ExitInstance();
}

void APooledInterfaceThread::SetPool(CThreadPool& pool) { m_pPool = &pool; }

void APooledInterfaceThread::SetBusy(BOOL busy) { m_bBusy = busy; }

BOOL APooledInterfaceThread::IsBusy() const { return m_bBusy; }

void APooledInterfaceThread::OnException(CException* exception) {
  if (exception != nullptr) exception->Delete();
}
