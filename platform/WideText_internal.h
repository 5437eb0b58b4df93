// Wide text (UTF-32 wchar_t) to and from UTF-8, for the platform layer's calls into Linux, which
// names files and writes logs in UTF-8. The core services have richer conversions, but the platform
// layer sits below them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace n7platform::internal {

// Nothing for text that is not Unicode (surrogates, values above U+10FFFF).
std::optional<std::string> ToUtf8(std::wstring_view text);

// Nothing for bytes that are not well-formed UTF-8.
std::optional<std::wstring> FromUtf8(std::string_view text);

}  // namespace n7platform::internal
