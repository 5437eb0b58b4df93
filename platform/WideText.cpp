#include "platform/WideText_internal.h"

#include <cstddef>

namespace n7platform {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsScalarValue(char32_t c) { return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF); }

void AppendUtf8(char32_t c, std::string& out) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// Decodes the sequence at `text[at]`; sets `length` to the bytes it takes (1 for an invalid
// byte, which decodes as the replacement character).
char32_t DecodeUtf8(std::string_view text, std::size_t at, std::size_t& length) {
  const auto lead = static_cast<unsigned char>(text[at]);
  length = 1;
  if (lead < 0x80) return lead;
  std::size_t count = 0;
  char32_t value = 0;
  char32_t minimum = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    count = 1, value = lead & 0x1Fu, minimum = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    count = 2, value = lead & 0x0Fu, minimum = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    count = 3, value = lead & 0x07u, minimum = 0x10000;
  } else {
    return kReplacement;
  }
  if (text.size() - at <= count) return kReplacement;
  for (std::size_t i = 1; i <= count; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    value = (value << 6) | (next & 0x3Fu);
  }
  if (value < minimum || !IsScalarValue(value)) return kReplacement;
  length = count + 1;
  return value;
}

}  // namespace

std::string WideToUtf8Lossy(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t c : text) {
    const auto value = static_cast<char32_t>(c);
    if (IsScalarValue(value)) {
      AppendUtf8(value, out);
    } else {
      out += '?';
    }
  }
  return out;
}

std::wstring Utf8ToWideLossy(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  std::size_t length = 0;
  for (std::size_t at = 0; at < text.size(); at += length) {
    out += static_cast<wchar_t>(DecodeUtf8(text, at, length));
  }
  return out;
}

}  // namespace n7platform
