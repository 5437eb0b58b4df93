// The project's one codec between the Unicode encodings: UTF-8 bytes, UTF-16 code units and wide
// text (wchar_t, one code point per unit). Every layer uses it, and so does the build's resource
// compiler, which is why it is header-only and depends on nothing else of the project.
//
// The rules:
// - A scalar value is a code point up to U+10FFFF outside the surrogate block.
// - UTF-8 is accepted in its shortest form only: overlong forms, encoded surrogates, values above
//   U+10FFFF and stray or missing continuation bytes are malformed.
// - Wide text that holds a UTF-16 surrogate pair (text that came from UTF-16 data unit by unit) is
//   read as the one code point the pair encodes; an unpaired surrogate or a unit above U+10FFFF is
//   malformed.
// - What becomes of malformed input is the caller's choice, said at every call: the sequence
//   decoders report the problem; the whole-text conversions fail or replace (`Malformed`).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace n7platform::codec {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;
inline constexpr char32_t kMaxCodePoint = 0x10FFFF;

constexpr bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
constexpr bool IsScalarValue(char32_t c) { return c <= kMaxCodePoint && !IsSurrogate(c); }

// The outcome of decoding the sequence at the start of a text.
struct Decoded {
  char32_t code_point = 0;
  // Units (bytes, or wide units) the sequence takes; 0 when the units do not form a valid one.
  std::size_t length = 0;
  // For an invalid sequence: the offset of the offending unit from the start, and what is wrong
  // with it ("overlong encoding", "truncated sequence", "unpaired surrogate", ...).
  std::size_t error_offset = 0;
  const char* problem = nullptr;
};

namespace detail {

// What a UTF-8 lead byte says about the sequence it starts: its length, and the range of the
// second byte outside of which the value would be overlong, a surrogate or above U+10FFFF.
struct SequenceShape {
  std::size_t length;  // 0: the byte cannot start a sequence, for the reason in `problem`
  unsigned char second_low = 0x80;
  unsigned char second_high = 0xBF;
  const char* problem = nullptr;
};

constexpr SequenceShape ShapeOf(unsigned char lead) {
  if (lead < 0xC0) return {0, 0x80, 0xBF, "unexpected continuation byte"};
  if (lead < 0xC2) return {0, 0x80, 0xBF, "overlong encoding"};
  if (lead < 0xE0) return {2};
  if (lead == 0xE0) return {3, 0xA0, 0xBF, "overlong encoding"};
  if (lead == 0xED) return {3, 0x80, 0x9F, "encoded surrogate"};
  if (lead < 0xF0) return {3};
  if (lead == 0xF0) return {4, 0x90, 0xBF, "overlong encoding"};
  if (lead < 0xF4) return {4};
  if (lead < 0xF8) return {lead == 0xF4 ? 4u : 0u, 0x80, 0x8F, "code point above U+10FFFF"};
  return {0, 0x80, 0xBF, "invalid byte"};
}

constexpr Decoded Invalid(std::size_t offset, const char* problem) {
  return {0, 0, offset, problem};
}

// A wide unit as a number: wchar_t is signed, and its negative values must read as values above
// U+10FFFF, not as small code points.
template <typename Char>
constexpr char32_t UnitValue(Char unit) {
  return static_cast<char32_t>(static_cast<std::make_unsigned_t<Char>>(unit));
}

}  // namespace detail

// Decodes the UTF-8 sequence that starts `text`, which must not be empty.
constexpr Decoded DecodeUtf8(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const detail::SequenceShape shape = detail::ShapeOf(lead);
  if (shape.length == 0) return detail::Invalid(0, shape.problem);
  char32_t value = lead & (0x7Fu >> shape.length);
  for (std::size_t i = 1; i < shape.length; ++i) {
    if (i >= text.size()) return detail::Invalid(0, "truncated sequence");
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return detail::Invalid(i, "missing continuation byte");
    if (i == 1 && (next < shape.second_low || next > shape.second_high)) {
      return detail::Invalid(0, shape.problem);
    }
    value = (value << 6) | (next & 0x3Fu);
  }
  return {value, shape.length};
}

// Decodes the code point that starts `text` (wide or UTF-16 units, not empty), joining a surrogate
// pair.
template <typename Char>
constexpr Decoded DecodeWide(std::basic_string_view<Char> text) noexcept {
  const char32_t unit = detail::UnitValue(text[0]);
  if (unit >= 0xD800 && unit <= 0xDBFF && text.size() > 1) {
    const char32_t low = detail::UnitValue(text[1]);
    if (low >= 0xDC00 && low <= 0xDFFF)
      return {0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), 2};
  }
  if (IsSurrogate(unit)) return detail::Invalid(0, "unpaired surrogate");
  if (unit > kMaxCodePoint) return detail::Invalid(0, "value above U+10FFFF");
  return {unit, 1};
}

// The number of bytes of the UTF-8 form of `c` (at most U+10FFFF).
constexpr std::size_t Utf8Length(char32_t c) {
  return c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
}

// Gives the UTF-8 bytes of `c` (at most U+10FFFF) to `put`, one char at a time.
template <typename Put>
constexpr void EncodeUtf8(char32_t c, Put put) {
  if (c < 0x80) {
    put(static_cast<char>(c));
    return;
  }
  const std::size_t tail = Utf8Length(c) - 1;
  constexpr unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
  put(static_cast<char>(kLead[tail] | (c >> (6 * tail))));
  for (std::size_t i = tail; i-- > 0;) put(static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F)));
}

// The number of UTF-16 units of `c` (at most U+10FFFF).
constexpr std::size_t Utf16Length(char32_t c) { return c < 0x10000 ? 1 : 2; }

// Gives the UTF-16 units of `c` (at most U+10FFFF) to `put`. A surrogate value is given as the one
// unit it is, for callers that must reproduce what a UTF-16 system stores.
template <typename Put>
constexpr void EncodeUtf16(char32_t c, Put put) {
  if (c < 0x10000) {
    put(static_cast<char16_t>(c));
    return;
  }
  c -= 0x10000;
  put(static_cast<char16_t>(0xD800 | (c >> 10)));
  put(static_cast<char16_t>(0xDC00 | (c & 0x3FF)));
}

// What a whole-text conversion does with malformed input.
enum class Malformed {
  kFail,     // no result
  kReplace,  // U+FFFD for the malformed unit, and go on with the next one
};

// The number of leading ASCII bytes of `text`, tested eight at a time.
inline std::size_t AsciiPrefix(std::string_view text) {
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

// UTF-8 to wide text.
inline std::optional<std::wstring> FromUtf8(std::string_view text,
                                            Malformed malformed = Malformed::kFail) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    // Character by character: appending the range would build a temporary copy of it.
    const std::size_t ascii = AsciiPrefix(text.substr(pos));
    for (const char c : text.substr(pos, ascii)) out.push_back(static_cast<wchar_t>(c));
    pos += ascii;
    if (pos == text.size()) break;
    const Decoded sequence = DecodeUtf8(text.substr(pos));
    if (sequence.length == 0 && malformed == Malformed::kFail) return std::nullopt;
    out.push_back(
        static_cast<wchar_t>(sequence.length == 0 ? kReplacementCharacter : sequence.code_point));
    pos += sequence.length == 0 ? 1 : sequence.length;
  }
  return out;
}

// Wide text to UTF-8.
inline std::optional<std::string> ToUtf8(std::wstring_view text,
                                         Malformed malformed = Malformed::kFail) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) {
    const Decoded unit = DecodeWide(text.substr(pos));
    if (unit.length == 0 && malformed == Malformed::kFail) return std::nullopt;
    EncodeUtf8(unit.length == 0 ? kReplacementCharacter : unit.code_point,
               [&out](char byte) { out.push_back(byte); });
    pos += unit.length == 0 ? 1 : unit.length;
  }
  return out;
}

}  // namespace n7platform::codec
