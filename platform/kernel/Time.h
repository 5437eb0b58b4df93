// Win32 time calls over the library's clock (platform/kernel/Clock.h).
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

N7_EXPORT void GetSystemTimeAsFileTime(FILETIME* file_time);
N7_EXPORT void GetSystemTime(SYSTEMTIME* system_time);
N7_EXPORT void GetLocalTime(SYSTEMTIME* local_time);
// Milliseconds on the monotonic clock; GetTickCount wraps after 49.7 days like on Windows.
N7_EXPORT DWORD GetTickCount();
N7_EXPORT ULONGLONG GetTickCount64();
