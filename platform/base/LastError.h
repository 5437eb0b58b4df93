// The calling thread's last error: what a failing call of the platform layer leaves for its caller
// to read. Every layer sets it, so it sits below all of them.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

N7_EXPORT DWORD GetLastError();
N7_EXPORT void SetLastError(DWORD error);
