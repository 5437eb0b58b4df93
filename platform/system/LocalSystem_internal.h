// Helpers shared by the platform layer's facilities that reach the local system: what a Linux
// error number means as a Win32 error code, and whether a server name names this machine.
#pragma once

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform::internal {

// The Win32 error code closest to `error` (an errno value) for a file operation.
DWORD Win32ErrorOfErrno(int error);

// Whether `server` means the local machine: null, empty, or this machine's host name compared
// without regard to case, with or without a leading "\\".
bool IsLocalMachine(LPCWSTR server);

}  // namespace n7platform::internal
