#include "n7utility/Utility/IStringAndDwordMapper.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "n7utility/core/global_locale_test.h"

namespace {

TEST(IStringTest, EqualityAndHashIgnoreCase) {
  EXPECT_TRUE(CIString(L"Alpha") == CIString(L"aLPHA"));
  EXPECT_TRUE(CIString(L"Alpha") == L"ALPHA");
  EXPECT_FALSE(CIString(L"Alpha") == CIString(L"Alphas"));
  // ((65 * 33) + 66) * 33 + 67
  EXPECT_EQ(CIString(L"abc").Hash(), 73030);
  EXPECT_EQ(CIString(L"ABC").Hash(), 73030);
  EXPECT_EQ(CIString(L"zzzzzzz").Hash(), -394713418);  // wraps around 32 bits
  // A character beyond the BMP is hashed as its two UTF-16 units: 0xD83D * 33 + 0xDE00.
  EXPECT_EQ(CIString(L"\U0001F600").Hash(), 1883613);
  EXPECT_EQ(CIString().Hash(), 0);
  // In a map the hash is scrambled: 73030 * 16807.
  EXPECT_EQ(HashKey<const CIString&>(L"ABC"), 1227415210u);
}

// Under a host's Unicode locale the Kelvin sign lower-cases to k and the dotted capital I to i:
// names that compare equal must land in the same bucket, or a map holds both.
TEST(IStringTest, NamesThatCompareEqualHashAlike) {
  N7_TEST_UNDER_LOCALE("de_DE.UTF-8");
  const std::pair<const wchar_t*, const wchar_t*> pairs[] = {
      {L"k", L"\u212A"}, {L"i", L"\u0130"}, {L"äpfel", L"ÄPFEL"}};
  for (const auto& [a, b] : pairs) {
    ASSERT_TRUE(CIString(a) == CIString(b)) << a;
    EXPECT_EQ(CIString(a).Hash(), CIString(b).Hash()) << a;
  }
  // Beyond the BMP names hash by UTF-16 units, which case does not touch: Deseret letters that
  // differ in case must not compare equal either.
  EXPECT_FALSE(CIString(L"\U00010400") == CIString(L"\U00010428"));

  CIStringAndDwordMapper mapper;
  ASSERT_EQ(mapper.SetAt(L"kelvin", 1), 1);
  EXPECT_EQ(mapper.SetAt(2, L"\u212Aelvin"), 0);
  EXPECT_EQ(mapper.GetCount(), 1);
}

// The plain string's case-blind comparison is the C runtime's and follows the current locale (the
// C locale knows no case beyond ASCII); a name's does not (see the next test).
TEST(IStringTest, OnlyThePlainStringFollowsTheCurrentLocale) {
  EXPECT_NE(CString(L"Äpfel").CompareNoCase(L"äpfel"), 0);
  N7_TEST_UNDER_LOCALE("de_DE.UTF-8");
  EXPECT_EQ(CString(L"Äpfel").CompareNoCase(L"äpfel"), 0);
}

// The fold of a stored name must not change when the host switches locales afterwards.
TEST(IStringAndDwordMapperTest, FindsNamesStoredBeforeALocaleChange) {
  CIStringAndDwordMapper mapper;
  ASSERT_EQ(mapper.SetAt(L"äpfel", 1), 1);
  {
    N7_TEST_UNDER_LOCALE("de_DE.UTF-8");
    ASSERT_EQ(mapper.SetAt(L"Ölbaum", 2), 1);
    EXPECT_EQ(mapper.SetAt(3, L"ÄPFEL"), 0);
    DWORD number = 0;
    EXPECT_EQ(mapper.Lookup(L"äpfel", number), 1);
    EXPECT_EQ(number, 1u);
  }
  DWORD number = 0;
  EXPECT_EQ(mapper.Lookup(L"ölbaum", number), 1);
  EXPECT_EQ(number, 2u);
  EXPECT_EQ(mapper.RemoveKey(L"ÖLBAUM"), 1);
  EXPECT_EQ(mapper.RemoveKey(L"Äpfel"), 1);
  EXPECT_EQ(mapper.GetStartPosition(), nullptr);
}

std::vector<std::pair<CString, DWORD>> Entries(const CIStringAndDwordMapper& mapper) {
  std::vector<std::pair<CString, DWORD>> entries;
  for (POSITION position = mapper.GetStartPosition(); position != nullptr;) {
    CIString name;
    DWORD number = 0;
    mapper.GetNextAssoc(position, name, number);
    entries.emplace_back(name, number);
  }
  return entries;
}

// Buckets of 17: Alpha 0, Gamma 6, Beta and abc 12, Delta 15.
TEST(IStringAndDwordMapperTest, IteratesTheNameMapInBucketOrder) {
  CIStringAndDwordMapper mapper;
  EXPECT_EQ(mapper.GetStartPosition(), nullptr);
  EXPECT_EQ(mapper.SetAt(L"Beta", 2), 1);
  EXPECT_EQ(mapper.SetAt(L"Delta", 4), 1);
  EXPECT_EQ(mapper.SetAt(1, L"Alpha"), 1);
  EXPECT_EQ(mapper.SetAt(L"abc", 0), 1);
  EXPECT_EQ(mapper.SetAt(3, L"Gamma"), 1);
  const std::vector<std::pair<CString, DWORD>> expected = {
      {L"Alpha", 1}, {L"Gamma", 3}, {L"abc", 0}, {L"Beta", 2}, {L"Delta", 4}};
  EXPECT_EQ(Entries(mapper), expected);
  EXPECT_EQ(mapper.GetCount(), 5);
  mapper.RemoveAll();
  EXPECT_EQ(mapper.GetStartPosition(), nullptr);
  EXPECT_EQ(mapper.GetCount(), 0);
}

// What a lookup finds, or nothing; the out argument must stay untouched when nothing is found.
std::optional<DWORD> NumberOf(const CIStringAndDwordMapper& mapper, const wchar_t* name) {
  DWORD number = 0xDEAD;
  if (mapper.Lookup(name, number) == 1) return number;
  EXPECT_EQ(number, 0xDEADu);
  return std::nullopt;
}

std::optional<std::wstring> NameOf(const CIStringAndDwordMapper& mapper, DWORD number) {
  CIString name = L"untouched";
  if (mapper.Lookup(number, name) == 1) return name.str();
  EXPECT_EQ(name.str(), L"untouched");
  return std::nullopt;
}

TEST(IStringAndDwordMapperTest, RefusesADuplicateSecondArgument) {
  CIStringAndDwordMapper mapper;
  ASSERT_EQ(mapper.SetAt(L"Alpha", 1), 1);
  EXPECT_EQ(mapper.SetAt(L"Beta", 1), 0);
  EXPECT_EQ(NumberOf(mapper, L"Beta"), std::nullopt);
  EXPECT_EQ(NameOf(mapper, 1), L"Alpha");

  CIStringAndDwordMapper by_number;
  ASSERT_EQ(by_number.SetAt(1, L"Alpha"), 1);
  EXPECT_EQ(by_number.SetAt(2, L"alpha"), 0);
  EXPECT_EQ(NameOf(by_number, 2), std::nullopt);
  EXPECT_EQ(by_number.GetCount(), 1);
}

TEST(IStringAndDwordMapperTest, OverwritesADuplicateFirstArgument) {
  CIStringAndDwordMapper mapper;
  ASSERT_EQ(mapper.SetAt(L"Alpha", 1), 1);
  EXPECT_EQ(mapper.SetAt(L"ALPHA", 2), 1);
  EXPECT_EQ(NumberOf(mapper, L"alpha"), 2u);
  EXPECT_EQ(NameOf(mapper, 1), L"Alpha");  // the old entry stays
  EXPECT_EQ(NameOf(mapper, 2), L"ALPHA");  // the number map has the name as given
  // The name map keeps the spelling the entry was created with; it counts one name.
  EXPECT_EQ(Entries(mapper), (std::vector<std::pair<CString, DWORD>>{{L"Alpha", 2}}));
  EXPECT_EQ(mapper.GetCount(), 1);

  CIStringAndDwordMapper by_number;
  ASSERT_EQ(by_number.SetAt(1, L"Alpha"), 1);
  EXPECT_EQ(by_number.SetAt(1, L"Beta"), 1);
  EXPECT_EQ(NameOf(by_number, 1), L"Beta");
  EXPECT_EQ(NumberOf(by_number, L"Alpha"), 1u);  // the old name keeps its number
  EXPECT_EQ(by_number.GetCount(), 2);
}

TEST(IStringAndDwordMapperTest, RemovesANameWithItsNumber) {
  CIStringAndDwordMapper mapper;
  ASSERT_EQ(mapper.SetAt(L"Alpha", 1), 1);
  ASSERT_EQ(mapper.SetAt(L"Beta", 2), 1);
  EXPECT_EQ(mapper.RemoveKey(L"ALPHA"), 1);
  EXPECT_EQ(mapper.RemoveKey(L"ALPHA"), 0);
  EXPECT_EQ(NameOf(mapper, 1), std::nullopt);
  EXPECT_EQ(mapper.RemoveKey(2), 1);
  EXPECT_EQ(mapper.RemoveKey(2), 0);
  EXPECT_EQ(mapper.GetStartPosition(), nullptr);
  // The numbers are free again.
  EXPECT_EQ(mapper.SetAt(L"Gamma", 1), 1);
}

}  // namespace
