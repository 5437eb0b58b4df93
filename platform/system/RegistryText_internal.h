// Registry names as the store keeps them: UTF-8 text, and an upper-cased copy that lookups and
// ordering use, so that names compare without regard to case but keep the case they were given.
#pragma once

#include <string>
#include <string_view>

#include "n7utility/platform/base/TextCodec.h"

namespace n7platform::internal {

// Names go into the store through codec::ToUtf8, which refuses what is not Unicode.
// UTF-8 from the store back to wide text; a malformed sequence becomes U+FFFD, so that a damaged
// store still lists its names.
inline std::wstring Utf8ToWide(std::string_view text) {
  return *codec::FromUtf8(text, codec::Malformed::kReplace);
}
// `text` upper-cased character by character with the Unicode tables, whatever the process's
// locale is (every process must fold a name the same way).
std::wstring FoldCase(std::wstring_view text);

}  // namespace n7platform::internal
