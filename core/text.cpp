#include "core/text.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/error.h"
#include "core/utf8.h"

namespace n7core {
namespace {

constexpr std::uint32_t kMaxCodePoint = 0x10FFFF;

bool is_surrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }
bool is_high_surrogate(std::uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool is_low_surrogate(std::uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

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

// The number of leading ASCII bytes, tested eight at a time.
std::size_t ascii_prefix(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  std::size_t length = 0;
  for (; length + 8 <= text.size(); length += 8) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) ++length;
  return length;
}

// Decodes the multi-byte sequence that starts at `pos` and moves `pos` past it.
std::uint32_t decode_utf8_sequence(std::string_view text, std::size_t& pos) {
  const Utf8Sequence sequence = decode_utf8(text.substr(pos));
  if (sequence.length == 0) raise_invalid_utf8(pos + sequence.error_offset, sequence.problem);
  pos += sequence.length;
  return sequence.code_point;
}

// Reads one code point of UTF-32 or UTF-16 units at `pos`, joining a surrogate pair, and moves
// `pos` past it.
template <typename Char>
std::uint32_t decode_wide(std::basic_string_view<Char> text, std::size_t& pos) {
  // A wchar_t is signed: its bits read as unsigned put negative values above U+10FFFF.
  const auto unit_at = [&text](std::size_t index) -> std::uint32_t {
    return std::bit_cast<std::make_unsigned_t<Char>>(text[index]);
  };
  const std::uint32_t unit = unit_at(pos);
  if (is_high_surrogate(unit) && pos + 1 < text.size()) {
    const std::uint32_t low = unit_at(pos + 1);
    if (is_low_surrogate(low)) {
      pos += 2;
      return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
    }
  }
  if (is_surrogate(unit)) raise_invalid_wide(pos, "unpaired surrogate", unit);
  if (unit > kMaxCodePoint) raise_invalid_wide(pos, "value above U+10FFFF", unit);
  ++pos;
  return unit;
}

void append_utf8(std::string& out, std::uint32_t value) {
  const auto byte = [](std::uint32_t bits) { return static_cast<char>(bits); };
  if (value < 0x80) {
    out.push_back(byte(value));
  } else if (value < 0x800) {
    out.push_back(byte(0xC0 | (value >> 6)));
    out.push_back(byte(0x80 | (value & 0x3F)));
  } else if (value < 0x10000) {
    out.push_back(byte(0xE0 | (value >> 12)));
    out.push_back(byte(0x80 | ((value >> 6) & 0x3F)));
    out.push_back(byte(0x80 | (value & 0x3F)));
  } else {
    out.push_back(byte(0xF0 | (value >> 18)));
    out.push_back(byte(0x80 | ((value >> 12) & 0x3F)));
    out.push_back(byte(0x80 | ((value >> 6) & 0x3F)));
    out.push_back(byte(0x80 | (value & 0x3F)));
  }
}

void append_utf16(std::u16string& out, std::uint32_t value) {
  if (value < 0x10000) {
    out.push_back(static_cast<char16_t>(value));
  } else {
    value -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 | (value >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (value & 0x3FF)));
  }
}

// The conversions size their output once, from an upper bound, and never grow it: a password
// passing through leaves no copy behind in a buffer given up for a larger one.
std::size_t utf8_size_bound(std::wstring_view text) {
  std::size_t size = 0;
  for (const wchar_t c : text) {
    const auto value = static_cast<std::uint32_t>(c);  // NOLINT(bugprone-signed-char-misuse)
    size += value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : 4;
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
      append_utf8(out, decode_wide(text, pos));
    }
  }
  return out;
}

std::string to_string(unsigned value) { return std::to_string(value); }

std::wstring to_wstring(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    const std::size_t ascii = ascii_prefix(text.substr(pos));
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
  for (std::size_t pos = 0; pos < text.size();) append_utf16(out, decode_wide(text, pos));
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
