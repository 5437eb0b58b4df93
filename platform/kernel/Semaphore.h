// Semaphores: kernel objects holding a count, taken by the waits of KernelObjects.h and closed with
// CloseHandle. Any thread may call these; failures set the last error.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// Creates an unnamed semaphore; 0 <= initial_count <= maximum_count and maximum_count > 0, else
// ERROR_INVALID_PARAMETER. Each wait that takes it lowers the count by one.
N7_EXPORT HANDLE CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initial_count,
                                  LONG maximum_count, LPCWSTR name);
// Raises the count by `release_count` (> 0); FALSE with ERROR_TOO_MANY_POSTS, changing nothing,
// when that would pass the maximum. `previous_count` (optional) receives the count before.
N7_EXPORT BOOL ReleaseSemaphore(HANDLE semaphore, LONG release_count, LONG* previous_count);

inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
