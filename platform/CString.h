// CString: the framework's wide string, as the library's families use it, over std::wstring.
//
// The framework's class is a reference-counted UTF-16 string; here it holds wchar_t text (UTF-32
// on Linux) by value. It carries the framework members the families call, with their names and
// meanings, and converts to and from std::wstring so the families' standard-string forms and
// CString forms meet without copies in user code.
#pragma once

#include <cwctype>
#include <string>
#include <utility>

#include "platform/windows_types.h"

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

  // Lower / upper case in the current locale, character by character.
  CString& MakeLower() {
    for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return *this;
  }
  CString& MakeUpper() {
    for (wchar_t& c : text_) c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    return *this;
  }

  friend bool operator==(const CString& a, const CString& b) { return a.text_ == b.text_; }
  friend bool operator==(const CString& a, const wchar_t* b) {
    return a.text_ == (b != nullptr ? b : L"");
  }

 private:
  std::wstring text_;
};
