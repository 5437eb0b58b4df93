// Mutexes: kernel objects owned by one thread at a time, taken by the waits of KernelObjects.h and
// closed with CloseHandle. Any thread may call these; failures set the last error.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// Creates an unnamed mutex, owned by the calling thread when `initial_owner` is TRUE. The owner may
// take it again; it is free once released as often as taken. A thread that ends while owning
// it abandons it: the next wait that takes it reports WAIT_ABANDONED_0 + index. A non-null name
// fails with ERROR_NOT_SUPPORTED.
N7_EXPORT HANDLE CreateMutexW(LPSECURITY_ATTRIBUTES security, BOOL initial_owner, LPCWSTR name);
// FALSE with ERROR_NOT_OWNER when the calling thread does not own the mutex.
N7_EXPORT BOOL ReleaseMutex(HANDLE mutex);

inline constexpr DWORD ERROR_NOT_OWNER = 288;
