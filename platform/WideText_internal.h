// Lossy conversions between wide text and UTF-8 for the platform layer's own output (logs,
// message inserts). The platform layer sits below the core services and cannot use their strict
// conversions; here whatever cannot be converted becomes U+FFFD (wide) or '?' (UTF-8) instead of
// failing, because the text is on its way to a person, not to a digest.
#pragma once

#include <string>
#include <string_view>

namespace n7platform {

std::string WideToUtf8Lossy(std::wstring_view text);
std::wstring Utf8ToWideLossy(std::string_view text);

}  // namespace n7platform
