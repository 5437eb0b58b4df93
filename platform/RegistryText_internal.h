// Registry names as the store keeps them: UTF-8 text, and an upper-cased copy that lookups and
// ordering use, so that names compare without regard to case but keep the case they were given.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace n7platform::internal {

// `text` in UTF-8; nothing when it holds a value that is no Unicode scalar value.
std::optional<std::string> WideToUtf8(std::wstring_view text);
// UTF-8 from the store back to wide text; a malformed sequence becomes U+FFFD.
std::wstring Utf8ToWide(std::string_view text);
// `text` upper-cased character by character with the Unicode tables, whatever the process's
// locale is (every process must fold a name the same way).
std::wstring FoldCase(std::wstring_view text);

}  // namespace n7platform::internal
