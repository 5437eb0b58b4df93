// Names matched without regard to case, and a two-way association between such names and 32-bit
// numbers, so that a program can translate a name to its number and back.
//
// CIString is a CString whose equality ignores case (characters equal after lower-casing) and
// whose hash is computed over its UTF-16 units c as h = h * 33 + upper(lower(c)) from 0, with
// 32-bit wrap-around; for ASCII names that is h * 33 + towupper(c). Names that compare equal hash
// alike. Both use glibc's Unicode case tables rather than the current locale's, so names stored
// before a host calls setlocale stay where they are and stay equal to what they were equal to.
// In a map its hash goes through the framework's scrambler like any key.
//
// CIStringAndDwordMapper keeps a name -> number map and a number -> name map (17 buckets, blocks of
// 10 entries each). Each SetAt refuses a duplicate of its second argument and overwrites a
// duplicate of its first:
//   SetAt(name, number): refused (0) when the number is already there; otherwise the name's entry
//     (found without regard to case, keeping the spelling it was created with) gets the number, and
//     the number's entry gets the name as given. A name that had another number m keeps m -> name
//     in the number map.
//   SetAt(number, name): refused when the name is already there (in any case); otherwise the
//     number's entry gets the name and the name's entry the number. A number that had another
//     name t keeps t -> number in the name map.
// So after an overwriting SetAt the maps can hold different numbers of entries; GetCount counts
// names. Lookup by number gives the name as stored in the number map. Iteration walks the name map.
//
// Neither class locks; a mapper is used by one thread at a time or guarded by its owner.
#pragma once

#include <string_view>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/Map.h"

class N7_EXPORT CIString : public CString {
 public:
  CIString() = default;
  // Implicit, like CString's: a name is made wherever a text is given.
  CIString(const wchar_t* text) : CString(text) {}  // NOLINT(google-explicit-constructor)
  CIString(const CString& text) : CString(text) {}  // NOLINT(google-explicit-constructor)

  // The case-blind hash described above.
  LONG Hash() const;

  friend bool operator==(const CIString& a, const CIString& b) {
    return EqualsIgnoringCase(a.str(), b.str());
  }
  friend bool operator==(const CIString& a, const wchar_t* b) {
    return EqualsIgnoringCase(a.str(), b == nullptr ? L"" : b);
  }

 private:
  static bool EqualsIgnoringCase(std::wstring_view a, std::wstring_view b);
};

template <>
N7_EXPORT UINT HashKey<const CIString&>(const CIString& key);

class N7_EXPORT CIStringAndDwordMapper {
 public:
  CIStringAndDwordMapper();
  ~CIStringAndDwordMapper();
  CIStringAndDwordMapper(const CIStringAndDwordMapper&) = delete;
  CIStringAndDwordMapper& operator=(const CIStringAndDwordMapper&) = delete;

  // 1 when stored, 0 when refused.
  int SetAt(const CIString& name, DWORD number);
  int SetAt(DWORD number, const CIString& name);
  // 1 when found; the out argument is set only then.
  int Lookup(const CIString& name, DWORD& number) const;
  int Lookup(DWORD number, CIString& name) const;
  // Removes the number and the name stored with it from both maps; 1 when the key was there.
  int RemoveKey(const CIString& name);
  int RemoveKey(DWORD number);
  void RemoveAll();

  int GetCount() const;
  POSITION GetStartPosition() const;
  void GetNextAssoc(POSITION& position, CIString& name, DWORD& number) const;

 private:
  CMap<CIString, const CIString&, DWORD, DWORD> m_NameMap;
  CMap<DWORD, DWORD, CIString, const CIString&> m_NumberMap;
};
