// CString: the framework's wide string, as the library's families use it, over std::wstring.
//
// The framework's class is a reference-counted UTF-16 string; here it holds wchar_t text (UTF-32
// on Linux) by value. It carries the framework members the families call, with their names and
// meanings, and converts to and from std::wstring so the families' standard-string forms and
// CString forms meet without copies in user code.
#pragma once

#include <algorithm>
#include <cwctype>
#include <string>
#include <string_view>
#include <utility>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

struct HINSTANCE_Opaque;

class CString {
 public:
  CString() = default;
  // Null gives the empty string, as in the framework.
  // Implicit, as in the framework: a CString is made wherever a text is given.
  // NOLINTNEXTLINE(google-explicit-constructor)
  CString(const wchar_t* text) : text_(text != nullptr ? text : L"") {}
  // NOLINTNEXTLINE(google-explicit-constructor)
  CString(std::wstring text) : text_(std::move(text)) {}

  int GetLength() const noexcept { return static_cast<int>(text_.size()); }
  bool IsEmpty() const noexcept { return text_.empty(); }
  LPCWSTR GetString() const noexcept { return text_.c_str(); }
  // NOLINTNEXTLINE(google-explicit-constructor): implicit, as in the framework
  operator LPCWSTR() const noexcept { return text_.c_str(); }
  // The text as a standard string, for the families' standard-string forms.
  const std::wstring& str() const noexcept { return text_; }

  CString& operator+=(const CString& other) {
    text_ += other.text_;
    return *this;
  }
  CString& operator+=(const wchar_t* text) {
    if (text != nullptr) text_ += text;
    return *this;
  }
  CString& operator+=(wchar_t character) {
    text_ += character;
    return *this;
  }

  // Position of the first `sub` at or after `start`, or -1; a null `sub` is not found.
  int Find(const wchar_t* sub, int start = 0) const {
    if (sub == nullptr || start < 0) return -1;
    const std::wstring::size_type at = text_.find(sub, static_cast<std::wstring::size_type>(start));
    return at == std::wstring::npos ? -1 : static_cast<int>(at);
  }
  // Compares case-insensitively in the current locale: <0, 0 or >0, as wcscmp does. Null is empty.
  int CompareNoCase(const wchar_t* text) const {
    const std::wstring_view other(text != nullptr ? text : L"");
    const std::size_t common = std::min(text_.size(), other.size());
    for (std::size_t i = 0; i < common; ++i) {
      const wint_t a = std::towlower(static_cast<wint_t>(text_[i]));
      const wint_t b = std::towlower(static_cast<wint_t>(other[i]));
      if (a != b) return a < b ? -1 : 1;
    }
    if (text_.size() == other.size()) return 0;
    return text_.size() < other.size() ? -1 : 1;
  }

  // Lower / upper case in the current locale, character by character.
  CString& MakeLower() {
    for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return *this;
  }
  CString& MakeUpper() {
    for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    return *this;
  }

  // Loads string `id` from the framework's resource modules (platform/framework/ModuleState.h), or
  // from `module`: TRUE when found; otherwise FALSE and the string is unchanged.
  N7_EXPORT BOOL LoadString(UINT id);
  N7_EXPORT BOOL LoadString(HINSTANCE_Opaque* module, UINT id);

  friend bool operator==(const CString& a, const CString& b) { return a.text_ == b.text_; }
  friend bool operator==(const CString& a, const wchar_t* b) {
    return a.text_ == (b != nullptr ? b : L"");
  }

 private:
  std::wstring text_;
};
