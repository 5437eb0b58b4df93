// Directory change notifications (inotify underneath): kernel objects signalled by a change in a
// watched directory, waited on with the waits of KernelObjects.h. Any thread may call these;
// failures set the last error.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

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

inline constexpr DWORD ERROR_DIRECTORY = 267;

inline constexpr DWORD FILE_NOTIFY_CHANGE_FILE_NAME = 0x001;
inline constexpr DWORD FILE_NOTIFY_CHANGE_DIR_NAME = 0x002;
inline constexpr DWORD FILE_NOTIFY_CHANGE_ATTRIBUTES = 0x004;
inline constexpr DWORD FILE_NOTIFY_CHANGE_SIZE = 0x008;
inline constexpr DWORD FILE_NOTIFY_CHANGE_LAST_WRITE = 0x010;
inline constexpr DWORD FILE_NOTIFY_CHANGE_LAST_ACCESS = 0x020;
inline constexpr DWORD FILE_NOTIFY_CHANGE_CREATION = 0x040;
inline constexpr DWORD FILE_NOTIFY_CHANGE_SECURITY = 0x100;
