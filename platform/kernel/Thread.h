// The framework's threads: CWinThread and AfxBeginThread. The thread message queues that
// message-loop threads run on are in MessageQueue.h, included here.
//
// A thread's handle (m_hThread) is a kernel object signalled when the thread ends; it stays valid
// for waiters until the CWinThread is deleted, which closes it. Whoever needs the handle beyond
// that (an auto-deleting thread deletes itself as it ends) duplicates it first.
//
// A CWinThread is either a worker, running the procedure it was given, or a message-loop thread:
// a class derived from CWinThread whose thread runs InitInstance() and then Run(), which pumps the
// thread's message queue, calls OnIdle() while the queue is empty and returns ExitInstance() once
// WM_QUIT arrives. There are no windows: thread messages reach PreTranslateMessage(), which a
// derived class overrides to handle them.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/kernel/MessageQueue.h"

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
// How often a thread may be suspended without being resumed.
inline constexpr DWORD MAXIMUM_SUSPEND_COUNT = 127;

class N7_EXPORT CWinThread : public CObject {
  DECLARE_DYNAMIC(CWinThread)

 public:
  // A message-loop thread; derive from CWinThread and override InitInstance and friends.
  CWinThread();
  // A worker thread running proc(param).
  CWinThread(AFX_THREADPROC proc, LPVOID param);
  ~CWinThread() override;
  CWinThread(const CWinThread&) = delete;
  CWinThread& operator=(const CWinThread&) = delete;

  // Creates the thread; false (with the last error set) when it cannot be started. With
  // CREATE_SUSPENDED in `flags` it waits for ResumeThread before it runs. The thread's message
  // queue exists when this returns.
  BOOL CreateThread(DWORD flags = 0, UINT stack_size = 0, LPSECURITY_ATTRIBUTES security = nullptr);
  // Decrements the suspend count and returns the previous one; the thread runs when it reaches 0.
  // (DWORD)-1 with ERROR_INVALID_HANDLE when no thread was created.
  DWORD ResumeThread();
  // Increments the suspend count and returns the previous one. Only a thread that has not started
  // running yet can be held: a running thread fails with ERROR_NOT_SUPPORTED, and a count past
  // MAXIMUM_SUSPEND_COUNT with ERROR_SIGNAL_REFUSED.
  DWORD SuspendThread();
  // The priority is recorded and reported back; it does not change how the thread is scheduled.
  // THREAD_PRIORITY_ERROR_RETURN / FALSE (ERROR_INVALID_HANDLE) before the thread is created;
  // SetThreadPriority accepts the THREAD_PRIORITY_* levels (else ERROR_INVALID_PARAMETER).
  int GetThreadPriority();
  BOOL SetThreadPriority(int priority);
  // Posts to this thread's message queue.
  BOOL PostThreadMessage(UINT message, WPARAM wparam, LPARAM lparam);
  operator HANDLE() const { return m_hThread; }  // NOLINT(google-explicit-constructor)

  // Run on the new thread of a message-loop thread: Run() follows when it returns TRUE, else the
  // thread ends with ExitInstance(). The base returns FALSE: a plain CWinThread has nothing to do.
  virtual BOOL InitInstance();
  // The message loop. While the queue is empty it calls OnIdle(0), OnIdle(1), ... until OnIdle
  // returns FALSE, then waits; every message but WM_QUIT goes through PumpMessage and starts idle
  // processing afresh from 0 once the queue is empty again. Returns ExitInstance() at WM_QUIT.
  virtual int Run();
  // Handles a message taken off the queue; TRUE when it was handled. The base handles none.
  virtual BOOL PreTranslateMessage(MSG* msg);
  // Takes one message (waiting for it) and hands it to PreTranslateMessage; FALSE at WM_QUIT.
  virtual BOOL PumpMessage();
  // Idle processing; TRUE asks for another pass. The base wants none.
  virtual BOOL OnIdle(LONG count);
  // Whether `msg` restarts idle processing.
  virtual BOOL IsIdleMessage(MSG* msg);
  // Returns the thread's exit code: the wParam of the WM_QUIT that ended Run().
  virtual int ExitInstance();

  HANDLE m_hThread = nullptr;
  DWORD m_nThreadID = 0;
  // When TRUE (the default) the object deletes itself when its thread ends.
  BOOL m_bAutoDelete = TRUE;
  AFX_THREADPROC m_pfnThreadProc = nullptr;
  LPVOID m_pThreadParams = nullptr;
  // The message Run() is working on.
  MSG m_msgCur = {};

 private:
  struct State;
  State* state_ = nullptr;
};

// Begins a worker thread running proc(param). Returns once the new thread has started and taken
// its parameters (or, when created suspended, is ready to be resumed); null when it cannot start.
N7_EXPORT CWinThread* AfxBeginThread(AFX_THREADPROC proc, LPVOID param,
                                     int priority = THREAD_PRIORITY_NORMAL, UINT stack_size = 0,
                                     DWORD flags = 0, LPSECURITY_ATTRIBUTES security = nullptr);

// Creates an object of `thread_class` (a class derived from CWinThread and creatable by name,
// DECLARE_DYNCREATE) and begins its message-loop thread, as the worker form does. Null with
// ERROR_INVALID_PARAMETER when the class cannot be created or is no CWinThread, with the object
// deleted.
N7_EXPORT CWinThread* AfxBeginThread(CRuntimeClass* thread_class,
                                     int priority = THREAD_PRIORITY_NORMAL, UINT stack_size = 0,
                                     DWORD flags = 0, LPSECURITY_ATTRIBUTES security = nullptr);

// The CWinThread whose thread is calling; null on a thread not begun through one.
N7_EXPORT CWinThread* AfxGetThread();

// The value the thread's procedure returned, or STILL_ACTIVE while it runs. FALSE with
// ERROR_INVALID_HANDLE when `thread` is not a thread handle.
N7_EXPORT BOOL GetExitCodeThread(HANDLE thread, LPDWORD exit_code);

// The calling thread's identifier (the kernel's thread id).
N7_EXPORT DWORD GetCurrentThreadId();
