#include "n7utility/core/text.h"

#include <bit>
#include <cstdint>
#include <type_traits>

#include "n7utility/core/error.h"
#include "n7utility/platform/base/TextCodec.h"

namespace n7core {
namespace {

namespace codec = n7platform::codec;

std::string hex(std::uint32_t value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string digits;
  do {
    digits.insert(digits.begin(), kDigits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  return "0x" + digits;
}

[[noreturn]] void raise_invalid_utf8(std::size_t offset, const char* problem) {
  throw_error(errors::invalid_utf8,
              "Invalid UTF-8 at byte " + std::to_string(offset) + ": " + std::string(problem),
              SourceLocation("n7core::to_wstring", "core/text", __LINE__));
}

[[noreturn]] void raise_invalid_wide(std::size_t index, const char* problem, std::uint32_t unit) {
  throw_error(errors::invalid_utf16,
              "Invalid wide text at unit " + std::to_string(index) + ": " + std::string(problem) +
                  " " + hex(unit),
              SourceLocation("n7core::to_string", "core/text", __LINE__));
}

// Decodes the multi-byte sequence that starts at `pos` and moves `pos` past it.
std::uint32_t decode_utf8_sequence(std::string_view text, std::size_t& pos) {
  const codec::Decoded sequence = codec::DecodeUtf8(text.substr(pos));
  if (sequence.length == 0) raise_invalid_utf8(pos + sequence.error_offset, sequence.problem);
  pos += sequence.length;
  return sequence.code_point;
}

// Reads one code point of UTF-32 or UTF-16 units at `pos`, joining a surrogate pair, and moves
// `pos` past it.
template <typename Char>
std::uint32_t decode_wide(std::basic_string_view<Char> text, std::size_t& pos) {
  const codec::Decoded unit = codec::DecodeWide(text.substr(pos));
  if (unit.length == 0) {
    raise_invalid_wide(pos, unit.problem, std::bit_cast<std::make_unsigned_t<Char>>(text[pos]));
  }
  pos += unit.length;
  return unit.code_point;
}

// The conversions size their output once, from an upper bound, and never grow it: a password
// passing through leaves no copy behind in a buffer given up for a larger one.
std::size_t utf8_size_bound(std::wstring_view text) {
  std::size_t size = 0;
  for (const wchar_t c : text) {
    const auto value = static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse)
    size += value <= codec::kMaxCodePoint ? codec::Utf8Length(value) : 0;
  }
  return size;
}

}  // namespace

std::string to_string(const wchar_t* text) {
  return text == nullptr ? std::string() : to_string(std::wstring_view(text));
}

std::string to_string(std::wstring_view text) {
  std::string out;
  out.reserve(utf8_size_bound(text));
  for (std::size_t pos = 0; pos < text.size();) {
    if (text[pos] >= 0 && text[pos] < 0x80) {
      out.push_back(static_cast<char>(text[pos++]));
    } else {
      codec::EncodeUtf8(decode_wide(text, pos), [&out](char byte) { out.push_back(byte); });
    }
  }
  return out;
}

std::string to_string(unsigned value) { return std::to_string(value); }

std::wstring to_wstring(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t ascii = codec::AsciiPrefix(text.substr(pos));
    // Character by character: appending the range would build a temporary copy of it.
    for (const char c : text.substr(pos, ascii)) out.push_back(static_cast<wchar_t>(c));
    pos += ascii;
    if (pos < text.size()) out.push_back(static_cast<wchar_t>(decode_utf8_sequence(text, pos)));
  }
  return out;
}

std::u16string to_utf16(std::wstring_view text) {
  std::u16string out;
  out.reserve(2 * text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    codec::EncodeUtf16(decode_wide(text, pos), [&out](char16_t unit) { out.push_back(unit); });
  }
  return out;
}

std::wstring from_utf16(std::u16string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    out.push_back(static_cast<wchar_t>(decode_wide(text, pos)));
  }
  return out;
}

}  // namespace n7core
