// The framework's threads: CWinThread and AfxBeginThread for worker functions.
//
// A thread's handle (m_hThread) is a kernel object signalled when the thread ends; it stays valid
// for waiters until the CWinThread is deleted, which closes it.
#pragma once

#include "platform/export.h"
#include "platform/windows_types.h"

using AFX_THREADPROC = UINT (*)(LPVOID);

inline constexpr int THREAD_PRIORITY_IDLE = -15;
inline constexpr int THREAD_PRIORITY_LOWEST = -2;
inline constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
inline constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;
// The exit code of a thread that is still running.
inline constexpr DWORD STILL_ACTIVE = 259;

class N7_EXPORT CWinThread {
 public:
  CWinThread();
  CWinThread(AFX_THREADPROC proc, LPVOID param);
  virtual ~CWinThread();
  CWinThread(const CWinThread&) = delete;
  CWinThread& operator=(const CWinThread&) = delete;

  // Creates the thread; false (with the last error set) when it cannot be started. With
  // CREATE_SUSPENDED in `flags` it waits for ResumeThread before it runs.
  BOOL CreateThread(DWORD flags = 0, UINT stack_size = 0, LPSECURITY_ATTRIBUTES security = nullptr);
  // Decrements the suspend count and returns the previous one; the thread runs when it reaches 0.
  // (DWORD)-1 with ERROR_INVALID_HANDLE when no thread was created.
  DWORD ResumeThread();
  // The priority is recorded and reported back; it does not change how the thread is scheduled.
  // THREAD_PRIORITY_ERROR_RETURN / FALSE (ERROR_INVALID_HANDLE) before the thread is created;
  // SetThreadPriority accepts the THREAD_PRIORITY_* levels (else ERROR_INVALID_PARAMETER).
  int GetThreadPriority();
  BOOL SetThreadPriority(int priority);
  operator HANDLE() const { return m_hThread; }  // NOLINT(google-explicit-constructor)

  HANDLE m_hThread = nullptr;
  DWORD m_nThreadID = 0;
  // When TRUE (the default) the object deletes itself when its thread ends.
  BOOL m_bAutoDelete = TRUE;
  AFX_THREADPROC m_pfnThreadProc = nullptr;
  LPVOID m_pThreadParams = nullptr;

 private:
  struct State;
  State* state_ = nullptr;
};

// Begins a worker thread running proc(param). Returns once the new thread has started and taken
// its parameters (or, when created suspended, is ready to be resumed); null when it cannot start.
N7_EXPORT CWinThread* AfxBeginThread(AFX_THREADPROC proc, LPVOID param,
                                     int priority = THREAD_PRIORITY_NORMAL, UINT stack_size = 0,
                                     DWORD flags = 0, LPSECURITY_ATTRIBUTES security = nullptr);

// The value the thread's procedure returned, or STILL_ACTIVE while it runs. FALSE with
// ERROR_INVALID_HANDLE when `thread` is not a thread handle.
N7_EXPORT BOOL GetExitCodeThread(HANDLE thread, LPDWORD exit_code);

// The calling thread's identifier (the kernel's thread id).
N7_EXPORT DWORD GetCurrentThreadId();
