#include <cstdint>

#include "platform/WideText_internal.h"

namespace n7platform::internal {
namespace {

bool IsCodePoint(std::uint32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// The number of continuation bytes after `lead`, or -1 for a byte that cannot start a sequence.
int TailLength(unsigned char lead) {
  if (lead < 0x80) return 0;
  if (lead >= 0xC2 && lead <= 0xDF) return 1;
  if (lead >= 0xE0 && lead <= 0xEF) return 2;
  if (lead >= 0xF0 && lead <= 0xF4) return 3;
  return -1;
}

}  // namespace

std::optional<std::string> ToUtf8(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t unit : text) {
    // wchar_t holds UTF-32 here; a negative value is no code point and fails the range test.
    const auto c = static_cast<std::uint32_t>(unit);  // NOLINT(bugprone-signed-char-misuse)
    if (!IsCodePoint(c)) return std::nullopt;
    if (c < 0x80) {
      out += static_cast<char>(c);
      continue;
    }
    const int tail = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[tail] | (c >> (6 * tail)));
    for (int i = tail - 1; i >= 0; --i) out += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3F));
  }
  return out;
}

std::optional<std::wstring> FromUtf8(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const int tail = TailLength(lead);
    if (tail < 0 || text.size() - i <= static_cast<std::size_t>(tail)) return std::nullopt;
    constexpr unsigned char kLeadMask[] = {0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t c = lead & kLeadMask[tail];
    for (int k = 1; k <= tail; ++k) {
      const auto next = static_cast<unsigned char>(text[i + static_cast<std::size_t>(k)]);
      if ((next & 0xC0) != 0x80) return std::nullopt;
      c = (c << 6) | (next & 0x3Fu);
    }
    // Overlong forms decode below the smallest value of their length.
    constexpr std::uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (c < kSmallest[tail] || !IsCodePoint(c)) return std::nullopt;
    out += static_cast<wchar_t>(c);
    i += static_cast<std::size_t>(tail) + 1;
  }
  return out;
}

}  // namespace n7platform::internal
