// UTF-8 decoding one sequence at a time, and the check of a whole text.
//
// The decoder accepts exactly the shortest forms of the code points U+0000 to U+10FFFF outside
// the surrogate block, as the text conversions of text.h do; readers that walk a buffer byte by
// byte (the XML tokenizer) use it to step over multi-byte characters without converting them.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/export.h"

namespace n7core {

// The outcome of decoding the sequence at the start of a text.
struct Utf8Sequence {
  char32_t code_point = 0;
  // Bytes the sequence takes, 1 to 4; 0 when the bytes do not form a valid sequence.
  std::size_t length = 0;
  // For an invalid sequence: the offset of the offending byte from the start, and what is wrong
  // with it ("overlong encoding", "truncated sequence", ...).
  std::size_t error_offset = 0;
  const char* problem = nullptr;
};

// Decodes the sequence that starts `text`, which must not be empty.
N7_EXPORT Utf8Sequence decode_utf8(std::string_view text) noexcept;

// Returns when `text` is valid UTF-8; otherwise throws "error.n7core.string.invalidUtf8" naming
// the byte offset of the first invalid sequence and its problem.
N7_EXPORT void check_utf8(std::string_view text);

}  // namespace n7core
