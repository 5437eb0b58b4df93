// Kernel objects of the platform layer, reached through HANDLEs, and the waits on them.
//
// Handles, events (manual and auto reset) and the waits live here; each other kind of object has
// its own header, included below so that this one offers them all: mutexes (Mutex.h), semaphores
// (Semaphore.h), directory change notifications (ChangeNotification.h). Thread handles come from
// Thread.h. Handles are checked: a closed or foreign handle fails with ERROR_INVALID_HANDLE instead
// of touching freed memory. An object lives until its last handle is closed and no wait holds it.
// Every timed wait is measured on the library's clock (platform/kernel/Clock.h), and waiting costs
// no CPU.
//
// Any thread may call any function here. Failures set the calling thread's last error.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/LastError.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/kernel/ChangeNotification.h"
#include "n7utility/platform/kernel/Mutex.h"
#include "n7utility/platform/kernel/Semaphore.h"

// Creates an unnamed event; a non-null name fails with ERROR_NOT_SUPPORTED (50). `security` is
// accepted and ignored.
N7_EXPORT HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manual_reset, BOOL initial_state,
                              LPCWSTR name);
N7_EXPORT BOOL SetEvent(HANDLE event);
N7_EXPORT BOOL ResetEvent(HANDLE event);
// Releases the threads waiting at this moment (all of them for a manual-reset event, one for an
// auto-reset event) and leaves the event non-signalled.
N7_EXPORT BOOL PulseEvent(HANDLE event);

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

// NOLINTNEXTLINE(performance-no-int-to-ptr): a handle value, never dereferenced
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(~std::uintptr_t{0});
