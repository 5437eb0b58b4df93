// Kernel objects of the platform layer, reached through HANDLEs, and the waits on them.
//
// Events (manual and auto reset) and thread handles live here; mutexes, semaphores and
// change notifications join them later. Handles are checked: a closed or foreign handle fails
// with ERROR_INVALID_HANDLE instead of touching freed memory. An object lives until its last
// handle is closed and no wait holds it. Every timed wait is measured on the library's clock
// (platform/Clock.h), and waiting costs no CPU.
//
// Any thread may call any function here. Failures set the calling thread's last error.
#pragma once

#include "platform/export.h"
#include "platform/windows_types.h"

N7_EXPORT DWORD GetLastError();
N7_EXPORT void SetLastError(DWORD error);

// Creates an unnamed event; a non-null name fails with ERROR_NOT_SUPPORTED (50). `security` is
// accepted and ignored.
N7_EXPORT HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manual_reset,
                              BOOL initial_state, LPCWSTR name);
N7_EXPORT BOOL SetEvent(HANDLE event);
N7_EXPORT BOOL ResetEvent(HANDLE event);
// Releases the threads waiting at this moment (all of them for a manual-reset event, one for an
// auto-reset event) and leaves the event non-signalled.
N7_EXPORT BOOL PulseEvent(HANDLE event);

N7_EXPORT BOOL CloseHandle(HANDLE handle);

// WAIT_OBJECT_0 when signalled (an auto-reset event is reset by the wait that takes it),
// WAIT_TIMEOUT, or WAIT_FAILED with the last error set.
N7_EXPORT DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Waits for any (WAIT_OBJECT_0 + lowest signalled index) or for all of 1 to 64 handles. A wait
// for all takes every object at once or none.
N7_EXPORT DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                       DWORD milliseconds);

inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
