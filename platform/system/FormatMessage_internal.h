// The message sources behind FormatMessageW.
#pragma once

#include <string>

#include "n7utility/platform/base/windows_types.h"

namespace n7platform {

// The built-in system table's text for `id` (with its final CR LF), or null when there is none.
// An HRESULT of the Win32 facility has the text of its Win32 code.
const wchar_t* FindSystemMessage(DWORD id);

// Looks `id` up in the message table of `module` (null: the host program) in `language`.
// Returns ERROR_SUCCESS and sets `text`, or the Win32 error that says why there is no text.
// The table is the one the resource compiler linked into the module (platform/system/Resources.h).
DWORD FindModuleMessage(LPCVOID module, DWORD id, DWORD language, std::wstring& text);

}  // namespace n7platform
