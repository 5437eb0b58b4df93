#include "n7utility/core/base64.h"

#include <cstdint>

#include "n7utility/core/error.h"

namespace n7core {
namespace {

constexpr unsigned char X = TransformHelperBase64::kInvalid;
constexpr unsigned char P = TransformHelperBase64::kPadding;

// Appends the first `count` 6-bit groups of the 24-bit `group`, most significant first.
void append_groups(std::string& out, std::uint32_t group, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    out.push_back(TransformHelperBase64::sm_fromBinaryTable[(group >> (18 - 6 * i)) & 0x3F]);
  }
}

std::uint32_t bits_at(const unsigned char* bytes, std::size_t index, int shift) {
  return static_cast<std::uint32_t>(bytes[index]) << shift;
}

}  // namespace

// clang-format off
const char TransformHelperBase64::sm_fromBinaryTable[64] = {
  'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I', 'J', 'K', 'L', 'M', 'N', 'O', 'P',
  'Q', 'R', 'S', 'T', 'U', 'V', 'W', 'X', 'Y', 'Z', 'a', 'b', 'c', 'd', 'e', 'f',
  'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v',
  'w', 'x', 'y', 'z', '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', '+', '/'};

// One row per 16 ASCII codes.
const unsigned char TransformHelperBase64::sm_toBinaryTable[128] = {
  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,
  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,
  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  X,  62, X,  X,  X,  63,  //  + /
  52, 53, 54, 55, 56, 57, 58, 59, 60, 61, X,  X,  X,  P,  X,  X,   // 0-9 =
  X,  0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,  // A-O
  15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, X,  X,  X,  X,  X,   // P-Z
  X,  26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40,  // a-o
  41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, X,  X,  X,  X,  X};  // p-z
// clang-format on

void TransformHelperBase64::check_padding_char(char c) {
  if (c != '=') raise_invalid_character_error(c);
}

void TransformHelperBase64::raise_invalid_character_error(char c) {
  const auto code = static_cast<unsigned char>(c);
  std::string shown = "code " + std::to_string(code);
  if (code > 0x20 && code < 0x7F) shown = "'" + std::string(1, c) + "' (" + shown + ")";
  throw_error(errors::base64_invalid_character, "Invalid Base64 character " + shown,
              SourceLocation("n7core::TransformHelperBase64", "core/base64", __LINE__));
}

void TransformHelperBase64::raise_truncated_sequence_error() {
  throw_error(errors::base64_truncated, "Base64 text ends inside a byte",
              SourceLocation("n7core::TransformHelperBase64", "core/base64", __LINE__));
}

std::string base64_encode(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    append_groups(out, bits_at(bytes, i, 16) | bits_at(bytes, i + 1, 8) | bits_at(bytes, i + 2, 0),
                  4);
  }
  const std::size_t rest = size - i;
  if (rest != 0) {
    const std::uint32_t group = bits_at(bytes, i, 16) | (rest == 2 ? bits_at(bytes, i + 1, 8) : 0);
    append_groups(out, group, rest + 1);
    out.append(3 - rest, '=');
  }
  return out;
}

std::vector<unsigned char> base64_decode(std::string_view text, Base64LoneGroup lone_group) {
  using Helper = TransformHelperBase64;
  std::vector<unsigned char> out;
  out.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t pending = 0;  // bits read but not yet part of a whole byte
  int pending_bits = 0;
  std::size_t pos = 0;
  for (; pos < text.size(); ++pos) {
    const auto code = static_cast<unsigned char>(text[pos]);
    const unsigned char value = code < 128 ? Helper::sm_toBinaryTable[code] : Helper::kInvalid;
    if (value == Helper::kPadding) break;
    if (value > Helper::kPadding) Helper::raise_invalid_character_error(text[pos]);
    pending = (pending << 6) | value;
    pending_bits += 6;
    if (pending_bits >= 8) {
      pending_bits -= 8;
      out.push_back(static_cast<unsigned char>(pending >> pending_bits));
      pending &= (1u << pending_bits) - 1;
    }
  }
  // Six bits left over means a group on its own: not even one byte's worth.
  const bool lone = pending_bits == 6 && lone_group == Base64LoneGroup::kRefuse;
  if (lone || pending != 0) Helper::raise_truncated_sequence_error();
  for (++pos; pos < text.size(); ++pos) Helper::check_padding_char(text[pos]);
  return out;
}

}  // namespace n7core
