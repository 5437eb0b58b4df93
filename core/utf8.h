// UTF-8 decoding one sequence at a time, and the check of a whole text.
//
// The decoder is the project's codec (platform/base/TextCodec.h): shortest forms of the scalar
// values only, as the text conversions of text.h accept; readers that walk a buffer byte by byte
// (the XML tokenizer) use it to step over multi-byte characters without converting them.
#pragma once

#include <cstddef>
#include <string_view>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/TextCodec.h"

namespace n7core {

// The outcome of decoding the sequence at the start of a text: the code point and the bytes it
// takes, or where the sequence goes wrong and why.
using Utf8Sequence = n7platform::codec::Decoded;

// Decodes the sequence that starts `text`, which must not be empty.
N7_EXPORT Utf8Sequence decode_utf8(std::string_view text) noexcept;

// Returns when `text` is valid UTF-8; otherwise throws "error.n7core.string.invalidUtf8" naming
// the byte offset of the first invalid sequence and its problem.
N7_EXPORT void check_utf8(std::string_view text);

}  // namespace n7core
