// The built-in table of system message texts behind FormatMessageW's FORMAT_MESSAGE_FROM_SYSTEM.
#pragma once

#include "n7utility/platform/base/WindowsTypes.h"

namespace n7platform {

// The built-in system table's text for `id` (with its final CR LF), or null when there is none.
// An HRESULT of the Win32 facility has the text of its Win32 code.
const wchar_t* FindSystemMessage(DWORD id);

}  // namespace n7platform
