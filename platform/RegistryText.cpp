#include <locale.h>

#include <cstdint>
#include <cwctype>

#include "platform/RegistryText_internal.h"

namespace n7platform::internal {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsScalarValue(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

// Decodes the sequence at text[*pos], advancing *pos past it; kReplacement for a malformed one
// (which then consumes one byte).
char32_t DecodeUtf8(std::string_view text, std::size_t* pos) {
  const auto lead = static_cast<unsigned char>(text[(*pos)++]);
  if (lead < 0x80) return lead;
  const int continuation_bytes = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
  if (continuation_bytes == 0 || text.size() - *pos < static_cast<std::size_t>(continuation_bytes))
    return kReplacement;
  char32_t c = lead & (0x3Fu >> continuation_bytes);
  for (int i = 0; i < continuation_bytes; ++i) {
    const auto byte = static_cast<unsigned char>(text[*pos + static_cast<std::size_t>(i)]);
    if ((byte & 0xC0) != 0x80) return kReplacement;
    c = (c << 6) | (byte & 0x3Fu);
  }
  constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
  if (c < kSmallest[continuation_bytes] || !IsScalarValue(c)) return kReplacement;
  *pos += static_cast<std::size_t>(continuation_bytes);
  return c;
}

// The Unicode case tables of glibc, independent of the locale the host program chose.
locale_t UnicodeLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) out += static_cast<wchar_t>(DecodeUtf8(text, &pos));
  return out;
}

std::wstring FoldCase(std::wstring_view text) {
  const locale_t locale = UnicodeLocale();
  std::wstring out(text);
  for (wchar_t& c : out) {
    if (c < 0x80) {
      if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - (L'a' - L'A'));
    } else if (locale != nullptr) {
      c = static_cast<wchar_t>(towupper_l(static_cast<wint_t>(c), locale));
    }
  }
  return out;
}

}  // namespace n7platform::internal
