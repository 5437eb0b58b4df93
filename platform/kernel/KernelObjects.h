// Kernel objects of the platform layer, reached through HANDLEs, and the waits on them.
//
// Events (manual and auto reset), mutexes, semaphores and change notifications live here; thread
// handles come from platform/Thread.h. Handles are checked: a closed or foreign handle fails
// with ERROR_INVALID_HANDLE instead of touching freed memory. An object lives until its last
// handle is closed and no wait holds it. Every timed wait is measured on the library's clock
// (platform/kernel/Clock.h), and waiting costs no CPU.
//
// Any thread may call any function here. Failures set the calling thread's last error.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/LastError.h"
#include "n7utility/platform/base/export.h"
#include "n7utility/platform/base/windows_types.h"

// Creates an unnamed event; a non-null name fails with ERROR_NOT_SUPPORTED (50). `security` is
// accepted and ignored.
N7_EXPORT HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manual_reset, BOOL initial_state,
                              LPCWSTR name);
N7_EXPORT BOOL SetEvent(HANDLE event);
N7_EXPORT BOOL ResetEvent(HANDLE event);
// Releases the threads waiting at this moment (all of them for a manual-reset event, one for an
// auto-reset event) and leaves the event non-signalled.
N7_EXPORT BOOL PulseEvent(HANDLE event);

// Creates an unnamed mutex, owned by the calling thread when `initial_owner` is TRUE. The owner may
// take it again; it is free once released as often as taken. A thread that ends while owning
// it abandons it: the next wait that takes it reports WAIT_ABANDONED_0 + index. A non-null name
// fails with ERROR_NOT_SUPPORTED.
N7_EXPORT HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initial_owner, LPCWSTR name);
// FALSE with ERROR_NOT_OWNER when the calling thread does not own the mutex.
N7_EXPORT BOOL ReleaseMutex(HANDLE mutex);

// Creates an unnamed semaphore; 0 <= initial_count <= maximum_count and maximum_count > 0, else
// ERROR_INVALID_PARAMETER. Each wait that takes it lowers the count by one.
N7_EXPORT HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initial_count,
                                  LONG maximum_count, LPCWSTR name);
// Raises the count by `release_count` (> 0); FALSE with ERROR_TOO_MANY_POSTS, changing nothing,
// when that would pass the maximum. `previous_count` (optional) receives the count before.
N7_EXPORT BOOL ReleaseSemaphore(HANDLE semaphore, LONG release_count, LONG* previous_count);

// Watches one directory (not its subdirectories: `watch_subtree` TRUE fails with
// ERROR_NOT_SUPPORTED) for the changes named by `filter` (FILE_NOTIFY_CHANGE_*). The handle is
// signalled by the first such change and stays signalled until FindNextChangeNotification
// re-arms it, which also forgets the changes made before. Changes reach the notifications of the
// process in the order in which they happened. INVALID_HANDLE_VALUE on failure:
// ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY (not a directory), ERROR_ACCESS_DENIED,
// ERROR_INVALID_PARAMETER (no known filter bit), ERROR_NOT_ENOUGH_MEMORY (system limits).
N7_EXPORT HANDLE FindFirstChangeNotificationW(LPCWSTR path, BOOL watch_subtree, DWORD filter);
N7_EXPORT BOOL FindNextChangeNotification(HANDLE change);
N7_EXPORT BOOL FindCloseChangeNotification(HANDLE change);

N7_EXPORT BOOL CloseHandle(HANDLE handle);

// The pseudo handle of the calling process, the only process DuplicateHandle knows.
N7_EXPORT HANDLE GetCurrentProcess();
// Opens a second handle to the object of `source`, valid until it is closed whatever becomes of
// `source` (DUPLICATE_CLOSE_SOURCE closes `source`). Both processes must be GetCurrentProcess();
// access and inheritance are accepted and ignored.
N7_EXPORT BOOL DuplicateHandle(HANDLE source_process, HANDLE source, HANDLE target_process,
                               HANDLE* target, DWORD desired_access, BOOL inherit, DWORD options);

inline constexpr DWORD DUPLICATE_CLOSE_SOURCE = 0x00000001u;
inline constexpr DWORD DUPLICATE_SAME_ACCESS = 0x00000002u;

// WAIT_OBJECT_0 when signalled (an auto-reset event is reset by the wait that takes it),
// WAIT_TIMEOUT, or WAIT_FAILED with the last error set.
N7_EXPORT DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

// Waits for any (WAIT_OBJECT_0 + lowest signalled index) or for all of 1 to 64 handles. A wait
// for all takes every object at once or none.
N7_EXPORT DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                       DWORD milliseconds);

inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;

// NOLINTNEXTLINE(performance-no-int-to-ptr): a handle value, never dereferenced
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});

inline constexpr DWORD FILE_NOTIFY_CHANGE_FILE_NAME = 0x001;
inline constexpr DWORD FILE_NOTIFY_CHANGE_DIR_NAME = 0x002;
inline constexpr DWORD FILE_NOTIFY_CHANGE_ATTRIBUTES = 0x004;
inline constexpr DWORD FILE_NOTIFY_CHANGE_SIZE = 0x008;
inline constexpr DWORD FILE_NOTIFY_CHANGE_LAST_WRITE = 0x010;
inline constexpr DWORD FILE_NOTIFY_CHANGE_LAST_ACCESS = 0x020;
inline constexpr DWORD FILE_NOTIFY_CHANGE_CREATION = 0x040;
inline constexpr DWORD FILE_NOTIFY_CHANGE_SECURITY = 0x100;
