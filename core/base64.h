// Base64 (standard alphabet, "=" padding): the character tables in both directions with the
// checks and errors their callers use, and whole-buffer encode and decode built on them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/Export.h"

namespace n7core {

class N7_EXPORT TransformHelperBase64 {
 public:
  // The character of each 6-bit value.
  static const char sm_fromBinaryTable[64];
  // The 6-bit value of each ASCII character: below 64 for the alphabet, kPadding for '=',
  // kInvalid for every other character.
  static const unsigned char sm_toBinaryTable[128];
  static constexpr unsigned char kPadding = 128;
  static constexpr unsigned char kInvalid = 255;

  // After the first padding character only padding may follow: throws the invalid-character
  // error unless `c` is '='.
  static void check_padding_char(char c);
  // "error.n7core.base64.invalidCharacter".
  [[noreturn]] static void raise_invalid_character_error(char c);
  // "error.n7core.base64.truncatedSequence": the text ends inside a byte, or the bits after the
  // last whole byte are not zero.
  [[noreturn]] static void raise_truncated_sequence_error();
};

// `size` bytes at `data` as Base64 with "=" padding.
N7_EXPORT std::string base64_encode(const void* data, std::size_t size);

// What base64_decode makes of a last group of six bits that holds no whole byte ("A===").
enum class Base64LoneGroup {
  kRefuse,  // a truncated sequence
  kAccept,  // ignored when its bits are zero, as readers of stored password blobs expect
};

// The bytes of Base64 `text`. Decoding stops at the first '='; only '=' may follow it. Padding is
// optional. Throws the invalid-character error for a character outside the alphabet, and the
// truncated-sequence error when the text ends inside a byte (see Base64LoneGroup) or leaves
// non-zero bits over.
N7_EXPORT std::vector<unsigned char> base64_decode(
    std::string_view text, Base64LoneGroup lone_group = Base64LoneGroup::kRefuse);

}  // namespace n7core
