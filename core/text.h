// Text conversion between wide strings, UTF-8 narrow strings and UTF-16 code units.
//
// Wide text is wchar_t, one code point per unit (UTF-32). A wide string that holds a UTF-16
// surrogate pair (text that came from UTF-16 data unit by unit) is read as the one code point the
// pair encodes. Malformed input is an ErrorException, never silent replacement:
// "error.n7core.string.invalidUtf8" or "error.n7core.string.invalidUtf16".
#pragma once

#include <string>
#include <string_view>

#include "n7utility/platform/base/Export.h"

namespace n7core {

// Wide text to UTF-8. Unpaired surrogates and values above U+10FFFF throw.
N7_EXPORT std::string to_string(const wchar_t* text);  // null gives ""
N7_EXPORT std::string to_string(std::wstring_view text);
// Decimal digits.
N7_EXPORT std::string to_string(unsigned value);

// UTF-8 to wide text. Overlong forms, encoded surrogates, values above U+10FFFF, stray or missing
// continuation bytes throw.
N7_EXPORT std::wstring to_wstring(std::string_view text);

// Wide text as UTF-16 code units, for digests and hashes that must equal those made on Windows.
N7_EXPORT std::u16string to_utf16(std::wstring_view text);
// UTF-16 code units to wide text; unpaired surrogates throw.
N7_EXPORT std::wstring from_utf16(std::u16string_view text);

}  // namespace n7core
