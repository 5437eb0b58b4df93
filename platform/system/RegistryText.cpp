#include <locale.h>

#include <cwctype>

#include "n7utility/platform/system/RegistryText_internal.h"

namespace n7platform::internal {
namespace {

// The Unicode case tables of glibc, independent of the locale the host program chose.
locale_t UnicodeLocale() {
  static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

}  // namespace

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
