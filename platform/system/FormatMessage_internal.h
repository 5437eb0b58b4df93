// The message sources behind FormatMessageW.
#pragma once

#include <string>

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform {

// Looks `id` up in the message table of `module` (null: the host program) in `language`.
// Returns ERROR_SUCCESS and sets `text`, or the Win32 error that says why there is no text.
// The table is the one the resource compiler linked into the module (platform/system/Resources.h).
DWORD FindModuleMessage(LPCVOID module, DWORD id, DWORD language, std::wstring& text);

}  // namespace n7platform
