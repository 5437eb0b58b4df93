#include "n7utility/Utility/IStringAndDwordMapper.h"

#include <locale.h>

#include <cstdint>
#include <cwctype>

namespace {

// Glibc's Unicode case tables, fixed for the life of the process: a host that calls setlocale
// after names are stored must not move them to other buckets or change which names are equal.
locale_t UnicodeCaseTables() {
  static const locale_t tables = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return tables;
}

// Case applies to UTF-16 units, as on the platform the names come from: a character beyond the
// BMP is a pair of surrogates there, which no case mapping changes.
wint_t Lower(wint_t c) {
  if (c < 0x80) return c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c;
  if (c > 0xFFFF) return c;
  const locale_t tables = UnicodeCaseTables();
  return tables != nullptr ? towlower_l(c, tables) : c;
}

// Hash units are upper-cased after lower-casing, so that every pair of units that compare equal
// (the Kelvin sign and k, the dotted capital I and i) hashes alike; for ASCII this is plain
// upper-casing.
std::uint32_t HashUnit(std::uint32_t unit) {
  const wint_t lower = Lower(static_cast<wint_t>(unit));
  if (lower < 0x80) return lower >= L'a' && lower <= L'z' ? lower - (L'a' - L'A') : lower;
  const locale_t tables = UnicodeCaseTables();
  return tables != nullptr ? towupper_l(lower, tables) : lower;
}

std::uint32_t AddUnit(std::uint32_t hash, std::uint32_t unit) { return hash * 33 + HashUnit(unit); }

}  // namespace

bool CIString::EqualsIgnoringCase(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && Lower(static_cast<wint_t>(a[i])) != Lower(static_cast<wint_t>(b[i]))) {
      return false;
    }
  }
  return true;
}

// Text is UTF-32 here; a character beyond the BMP counts as its two UTF-16 surrogates, which
// case mapping leaves as they are.
LONG CIString::Hash() const {
  std::uint32_t hash = 0;
  for (const wchar_t character : str()) {
    const auto code = static_cast<std::uint32_t>(character);  // NOLINT(bugprone-signed-char-misuse)
    if (code >= 0x10000 && code <= 0x10FFFF) {
      hash = AddUnit(hash, 0xD800 + ((code - 0x10000) >> 10));
      hash = AddUnit(hash, 0xDC00 + ((code - 0x10000) & 0x3FF));
    } else {
      hash = AddUnit(hash, code);
    }
  }
  return static_cast<LONG>(hash);
}

template <>
UINT HashKey<const CIString&>(const CIString& key) {
  return n7platform::ScrambleHash(key.Hash());
}

CIStringAndDwordMapper::CIStringAndDwordMapper() : m_NameMap(10), m_NumberMap(10) {}

CIStringAndDwordMapper::~CIStringAndDwordMapper() = default;

int CIStringAndDwordMapper::SetAt(const CIString& name, DWORD number) {
  if (m_NumberMap.PLookup(number) != nullptr) return 0;
  m_NameMap[name] = number;
  m_NumberMap[number] = name;
  return 1;
}

int CIStringAndDwordMapper::SetAt(DWORD number, const CIString& name) {
  if (m_NameMap.PLookup(name) != nullptr) return 0;
  m_NumberMap[number] = name;
  m_NameMap[name] = number;
  return 1;
}

int CIStringAndDwordMapper::Lookup(const CIString& name, DWORD& number) const {
  return m_NameMap.Lookup(name, number);
}

int CIStringAndDwordMapper::Lookup(DWORD number, CIString& name) const {
  return m_NumberMap.Lookup(number, name);
}

int CIStringAndDwordMapper::RemoveKey(const CIString& name) {
  DWORD number = 0;
  if (!m_NameMap.Lookup(name, number)) return 0;
  return RemoveKey(number);
}

int CIStringAndDwordMapper::RemoveKey(DWORD number) {
  CIString name;
  if (!m_NumberMap.Lookup(number, name)) return 0;
  m_NumberMap.RemoveKey(number);
  m_NameMap.RemoveKey(name);
  return 1;
}

void CIStringAndDwordMapper::RemoveAll() {
  m_NumberMap.RemoveAll();
  m_NameMap.RemoveAll();
}

int CIStringAndDwordMapper::GetCount() const { return static_cast<int>(m_NameMap.GetCount()); }

POSITION CIStringAndDwordMapper::GetStartPosition() const { return m_NameMap.GetStartPosition(); }

void CIStringAndDwordMapper::GetNextAssoc(POSITION& position, CIString& name, DWORD& number) const {
  m_NameMap.GetNextAssoc(position, name, number);
}
