#include "core/utf8.h"

#include <string>

#include "core/error.h"

namespace n7core {
namespace {

// What a lead byte says about the sequence it starts: its length, and the range of the second
// byte outside of which the value would be overlong, a surrogate or above U+10FFFF.
struct SequenceShape {
  std::size_t length;  // 0: the byte cannot start a sequence, for the reason in `problem`
  unsigned char second_low = 0x80;
  unsigned char second_high = 0xBF;
  const char* problem = nullptr;
};

SequenceShape shape_of(unsigned char lead) {
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

Utf8Sequence invalid(std::size_t offset, const char* problem) {
  Utf8Sequence sequence;
  sequence.error_offset = offset;
  sequence.problem = problem;
  return sequence;
}

}  // namespace

Utf8Sequence decode_utf8(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const SequenceShape shape = shape_of(lead);
  if (shape.length == 0) return invalid(0, shape.problem);
  char32_t value = lead & (0x7Fu >> shape.length);
  for (std::size_t i = 1; i < shape.length; ++i) {
    if (i >= text.size()) return invalid(0, "truncated sequence");
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return invalid(i, "missing continuation byte");
    if (i == 1 && (next < shape.second_low || next > shape.second_high)) {
      return invalid(0, shape.problem);
    }
    value = (value << 6) | (next & 0x3Fu);
  }
  return {value, shape.length};
}

void check_utf8(std::string_view text) {
  for (std::size_t pos = 0; pos < text.size();) {
    const Utf8Sequence sequence = decode_utf8(text.substr(pos));
    if (sequence.length == 0) {
      throw_error(errors::invalid_utf8,
                  "Invalid UTF-8 at byte " + std::to_string(pos + sequence.error_offset) + ": " +
                      sequence.problem,
                  SourceLocation("n7core::check_utf8", "core/utf8", __LINE__));
    }
    pos += sequence.length;
  }
}

}  // namespace n7core
