#include "n7utility/Utility/Authentication.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <string>
#include <string_view>
#include <vector>

#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/core/text.h"

namespace N7A {
namespace {

using Bytes = std::vector<unsigned char>;

// ---- An independent computation of the stored values, from the rules of the digest text ----

Bytes utf16le(const std::wstring& text, bool withTerminator) {
  Bytes bytes;
  for (const char16_t unit : n7core::to_utf16(text)) {
    bytes.push_back(static_cast<unsigned char>(unit & 0xFF));
    bytes.push_back(static_cast<unsigned char>(unit >> 8));
  }
  if (withTerminator) bytes.insert(bytes.end(), {0, 0});
  return bytes;
}

Bytes concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes md5(const Bytes& message) {
  Bytes digest(16);
  EVP_Digest(message.data(), message.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  return digest;
}

std::wstring alphabet() {
  std::wstring letters = L"$";
  for (wchar_t c = L'A'; c <= L'Z'; ++c) letters += c;
  for (wchar_t c = L'a'; c <= L'z'; ++c) letters += c;
  return letters + L"1234567890.";
}

// The 18-byte block read as a string of bits, six at a time, cut to 22 characters.
std::wstring digest_text(Bytes block, unsigned char marker) {
  block.insert(block.end(), {marker, marker});
  std::string bits;
  for (const unsigned char byte : block) {
    for (int bit = 7; bit >= 0; --bit) bits += ((byte >> bit) & 1) != 0 ? '1' : '0';
  }
  std::wstring text;
  for (std::size_t i = 0; i < 22; ++i)
    text += alphabet()[std::stoul(bits.substr(6 * i, 6), nullptr, 2)];
  return text;
}

std::wstring lowered(std::wstring text) {
  for (wchar_t& c : text) {
    if (c >= L'A' && c <= L'Z') c += L'a' - L'A';
  }
  return text;
}

std::wstring md5_half(const std::wstring& user, const std::wstring& password, bool keypad) {
  const Bytes prefix = keypad ? Bytes{'D'} : Bytes{};
  return digest_text(md5(concat({prefix, utf16le(lowered(user), true), utf16le(password, true)})),
                     0x00);
}

std::wstring pbkdf2_half(const std::wstring& user, const std::wstring& password, bool keypad) {
  const Bytes key = utf16le(lowered(user) + (keypad ? std::wstring{wchar_t{1}, L'D'} : L""), false);
  const Bytes salt = utf16le(password, false);
  Bytes derived(16);
  PKCS5_PBKDF2_HMAC(reinterpret_cast<const char*>(key.data()), static_cast<int>(key.size()),
                    salt.data(), static_cast<int>(salt.size()), 4096, EVP_sha1(), 16,
                    derived.data());
  return digest_text(derived, 0x11);
}

// ---- Cases ----

struct Account {
  std::wstring user, password, keypad_digits;
};

// ASCII, a mixed-case user ID, letters outside A to Z, and characters beyond the 16-bit range.
std::vector<Account> accounts() {
  return {
      {L"admin", L"Secret-42", L"73273842"},
      {L"AdMiN", L"Secret-42", L"73273842"},
      {L"Jos\u00e9", L"p\u00e4ssw\u00f6rd", L"777973"},
      {L"\U0001F600user", L"pw\U0001F512x9", L"7999"},
  };
}

TEST(KeyMapTest, LettersBecomeKeypadDigitsAndOtherCharactersAreDroppedOrMarked) {
  EXPECT_EQ(KeyMap(L"Ab-1", false), L"221");
  EXPECT_EQ(KeyMap(L"Ab-1", true), L"22*1");
  EXPECT_EQ(KeyMap(L"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", false),
            L"2223334445556667777888999922233344455566677778889999");
  // Letters outside A to Z are dropped in both modes; a space is not a letter.
  EXPECT_EQ(KeyMap(L"\u00e9\u03b1\U0001D400", true), L"");
  EXPECT_EQ(KeyMap(L"a b\U0001F600", true), L"2*2*");
}

TEST(MakePasswordTest, EqualsTheDigestRulesForEveryKindOfText) {
  for (const Account& account : accounts()) {
    const std::wstring stored = MakePassword(account.user, account.password);
    EXPECT_EQ(stored, md5_half(account.user, account.password, false) +
                          md5_half(account.user, account.keypad_digits, true))
        << n7core::to_string(account.user);
    ASSERT_EQ(stored.size(), 44u);
    EXPECT_NE(std::wstring_view(L"$Pfv").find(stored[21]), std::wstring_view::npos);
  }
  // The CString form gives the same value.
  EXPECT_EQ(MakePassword(L"AdMiN", L"Secret-42").str(),
            MakePassword(std::wstring(L"admin"), std::wstring(L"Secret-42")));
}

TEST(MakePasswordTest, EmptyPasswordAndPasswordWithoutKeypadForm) {
  const std::wstring user = L"admin";
  EXPECT_EQ(MakePassword(user, L""), L"");
  EXPECT_TRUE(MakePassword(nullptr, nullptr).IsEmpty());
  const std::wstring typed_only = MakePassword(user, L"!?\u00e9");
  EXPECT_EQ(typed_only, md5_half(L"admin", L"!?\u00e9", false));
  EXPECT_FALSE(Validate(L"admin", L"!?\u00e9", false, typed_only));
}

TEST(MakePasswordTest, SurrogatePairHeldAsTwoUnitsHashesAsItsCodePoint) {
  const std::wstring as_pair{L'p', wchar_t{0xD83D}, wchar_t{0xDE00}};
  const std::wstring user = L"u";
  EXPECT_EQ(MakePassword(user, as_pair), MakePassword(user, L"p\U0001F600"));
}

TEST(ValidateTest, ChecksTheTypedOrTheKeypadHalf) {
  for (const Account& account : accounts()) {
    const std::wstring stored = MakePassword(account.user, account.password);
    EXPECT_TRUE(Validate(lowered(account.user), account.password, false, stored));
    EXPECT_TRUE(Validate(account.user, account.keypad_digits, true, stored));
    EXPECT_FALSE(Validate(account.user, account.password + L"x", false, stored));
    EXPECT_FALSE(Validate(account.user, account.password, true, stored));  // letters, not digits
    EXPECT_FALSE(Validate(account.user + L"x", account.password, false, stored));
  }
}

TEST(ValidateTest, RejectsEmptyPasswordsAndValuesOfTheWrongLength) {
  const std::wstring stored = MakePassword(std::wstring(L"admin"), L"pw");
  EXPECT_FALSE(Validate(L"admin", L"", false, stored));
  EXPECT_FALSE(Validate(L"admin", L"pw", false, stored.substr(0, 43)));
  EXPECT_FALSE(Validate(L"admin", L"pw", false, stored + L"$"));
  EXPECT_FALSE(Validate(L"admin", L"pw", false, L""));
}

TEST(ValidateTest, ChecksValuesInThePbkdf2Form) {
  const Account account = accounts()[3];
  const std::wstring stored = pbkdf2_half(account.user, account.password, false) +
                              pbkdf2_half(account.user, account.keypad_digits, true);
  EXPECT_NE(std::wstring_view(L"AQgw").find(stored[21]), std::wstring_view::npos);
  EXPECT_EQ(impl::make_password_digest(account.user, account.password, false, true),
            stored.substr(0, 22));
  EXPECT_TRUE(Validate(account.user, account.password, false, stored));
  EXPECT_TRUE(Validate(account.user, account.keypad_digits, true, stored));
  EXPECT_FALSE(Validate(account.user, L"wrong", false, stored));
  // Character 21 alone decides the form: an MD5 typed half under a PBKDF2 marker never matches.
  std::wstring mixed = md5_half(account.user, account.password, false) + stored.substr(22);
  mixed[21] = stored[21];
  EXPECT_FALSE(Validate(account.user, account.password, false, mixed));
}

// The last letter of the alphabet, which the values above need not contain.
TEST(DigestTextTest, AllBitsSetIsTheAlphabetsLastLetter) {
  const Bytes all_ones(18, 0xFF);
  EXPECT_EQ(impl::encode_digest_text(all_ones.data()), std::wstring(22, L'.'));
}

TEST(LowerCopyTest, LowersOnlyAToZ) {
  EXPECT_EQ(impl::lower_copy(L"\u00c0Bc-Z\u0391"), L"\u00c0bc-z\u0391");
}

TEST(MdgTest, DigestsTheBytesInTheirOrder) {
  const Bytes challenge = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const Bytes second(16, 0xA5);
  Bytes digest(16);
  MdgC(challenge.data(), 5, digest.data());
  EXPECT_EQ(digest, md5(Bytes(challenge.begin(), challenge.begin() + 5)));
  MdgC(challenge.data(), -1, digest.data());
  EXPECT_EQ(digest, md5({}));

  MdgR(L"User\u00e9", L"Pw\U0001F600", challenge.data(), digest.data());
  EXPECT_EQ(digest,
            md5(concat({utf16le(L"user\u00e9", true), utf16le(L"Pw\U0001F600", true), challenge})));
  MdgR(L"User", challenge.data(), second.data(), digest.data());
  EXPECT_EQ(digest, md5(concat({utf16le(L"user", true), challenge, second})));
}

}  // namespace
}  // namespace N7A
