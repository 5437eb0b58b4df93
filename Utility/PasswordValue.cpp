// Stored password values: the digest texts a user's password is kept as (MD5 or PBKDF2, with a
// keypad form), their validation, and the MD5 challenge digests of the older login.
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "n7utility/Utility/Authentication.h"
#include "n7utility/Utility/Authentication_internal.h"
#include "n7utility/n7crypto/digest.h"
#include "n7utility/n7crypto/key.h"
#include "n7utility/n7crypto/pbkdf2.h"
#include "n7utility/n7crypto/wipe.h"
#include "n7utility/platform/base/TextCodec.h"

namespace N7A {
namespace {

constexpr std::size_t kStoredLength = 2 * impl::kDigestTextLength;
constexpr std::size_t kChallengeSize = 16;
constexpr int kPbkdf2Iterations = 4096;
constexpr int kPbkdf2DigestSize = 16;
constexpr unsigned char kPbkdf2Marker = 0x11;
constexpr wchar_t kAlphabet[] = L"$ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz1234567890.";
// The keypad digit of each letter from A to Z.
constexpr char kKeypadDigits[] = "22233344455566677778889999";
// Character 21 of a digest text holds the high nibble of the form marker: these four say 0x1.
constexpr std::wstring_view kPbkdf2FormCharacters = L"AQgw";

using n7crypto::WipeOnExit;

// Wide text as UTF-16 code units, low byte first, in a buffer that is wiped when released: the
// bytes a digest made on Windows reads. A value that UTF-16 cannot carry (above U+10FFFF) is
// taken as U+FFFD; a lone surrogate is kept as the unit it is.
class Utf16Bytes {
 public:
  Utf16Bytes(std::wstring_view text, bool withTerminator) : bytes_(size_of(text, withTerminator)) {
    unsigned char* out = bytes_.data();
    for (const wchar_t c : text) {
      n7platform::codec::EncodeUtf16(encodable(c), [&out](char16_t unit) {
        *out++ = static_cast<unsigned char>(unit);
        *out++ = static_cast<unsigned char>(unit >> 8);
      });
    }
  }

  const unsigned char* data() const { return bytes_.data(); }
  std::size_t size() const { return bytes_.size(); }

 private:
  static char32_t encodable(wchar_t c) {
    const auto value = static_cast<char32_t>(c);  // NOLINT(bugprone-signed-char-misuse)
    return value <= n7platform::codec::kMaxCodePoint ? value
                                                     : n7platform::codec::kReplacementCharacter;
  }

  static std::size_t size_of(std::wstring_view text, bool withTerminator) {
    std::size_t units = withTerminator ? 1 : 0;
    for (const wchar_t c : text) units += n7platform::codec::Utf16Length(encodable(c));
    return 2 * units;
  }

  n7crypto::Key bytes_;  // zero-filled: the terminator is already there
};

void update_with_terminator(n7crypto::Md5& md5, const std::wstring& text) {
  const Utf16Bytes bytes(text, true);
  md5.update(bytes.data(), bytes.size());
}

std::wstring md5_digest_text(const std::wstring& lowered, const std::wstring& password,
                             bool keypad) {
  n7crypto::Md5 md5;
  if (keypad) md5.update("D", 1);
  update_with_terminator(md5, lowered);
  update_with_terminator(md5, password);
  unsigned char block[impl::kDigestBlockSize] = {};
  md5.final(block);
  return impl::encode_digest_text(block);
}

std::wstring pbkdf2_digest_text(std::wstring lowered, const std::wstring& password, bool keypad) {
  if (keypad) {
    lowered.push_back(wchar_t{1});
    lowered.push_back(L'D');
  }
  const Utf16Bytes key(lowered, false);
  const Utf16Bytes salt(password, false);
  const n7crypto::Key derived = n7crypto::pbkdf2_sha1(
      key.data(), key.size(), salt.data(), salt.size(), kPbkdf2Iterations, kPbkdf2DigestSize);
  unsigned char block[impl::kDigestBlockSize];
  std::memcpy(block, derived.data(), kPbkdf2DigestSize);
  block[kPbkdf2DigestSize] = kPbkdf2Marker;
  block[kPbkdf2DigestSize + 1] = kPbkdf2Marker;
  std::wstring text = impl::encode_digest_text(block);
  n7crypto::wipe(block, sizeof block);
  return text;
}

// Classification as the Windows runtime does it, for every character whatever the process's
// locale: letters outside A to Z are letters too, and so are dropped rather than marked.
locale_t unicode_ctype() {
  static const locale_t locale = [] {
    locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    return unicode != locale_t{} ? unicode : newlocale(LC_CTYPE_MASK, "C", locale_t{});
  }();
  return locale;
}

// Compares in a time that does not depend on where the texts differ.
bool same_text(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  wchar_t difference = 0;
  for (std::size_t i = 0; i < a.size(); ++i) difference |= a[i] ^ b[i];
  return difference == 0;
}

}  // namespace

namespace impl {

std::wstring encode_digest_text(const unsigned char* block) {
  std::wstring text;
  text.reserve(kDigestBlockSize / 3 * 4);
  for (std::size_t i = 0; i < kDigestBlockSize; i += 3) {
    const unsigned b0 = block[i], b1 = block[i + 1], b2 = block[i + 2];
    text.push_back(kAlphabet[b0 >> 2]);
    text.push_back(kAlphabet[((b0 & 3) << 4) | (b1 >> 4)]);
    text.push_back(kAlphabet[((b1 & 15) << 2) | (b2 >> 6)]);
    text.push_back(kAlphabet[b2 & 63]);
  }
  text.resize(kDigestTextLength);
  return text;
}

std::wstring make_password_digest(const std::wstring& userId, const std::wstring& password,
                                  bool keypad, bool pbkdf2) {
  if (password.empty()) return {};
  std::wstring lowered = lower_copy(userId);
  return pbkdf2 ? pbkdf2_digest_text(std::move(lowered), password, keypad)
                : md5_digest_text(lowered, password, keypad);
}

std::wstring lower_copy(const std::wstring& text) {
  std::wstring lowered = text;
  for (wchar_t& c : lowered) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return lowered;
}

}  // namespace impl

std::wstring KeyMap(const std::wstring& text, bool markOthers) {
  const locale_t ctype = unicode_ctype();
  std::wstring keys;
  keys.reserve(text.size());  // one allocation: no copy of a password is left behind
  for (const wchar_t c : text) {
    const auto wide = static_cast<wint_t>(static_cast<std::uint32_t>(c));
    if (iswdigit_l(wide, ctype) != 0) {
      keys.push_back(c);
    } else if (iswalpha_l(wide, ctype) != 0) {
      const auto upper = static_cast<wchar_t>(towupper_l(wide, ctype));
      if (upper >= L'A' && upper <= L'Z') keys.push_back(kKeypadDigits[upper - L'A']);
    } else if (markOthers) {
      keys.push_back(L'*');
    }
  }
  return keys;
}

std::wstring MakePassword(const std::wstring& userId, const std::wstring& password) {
  if (password.empty()) return {};
  std::wstring keypad_form = KeyMap(password, false);
  const WipeOnExit wipe_keypad(keypad_form);
  std::wstring typed = impl::make_password_digest(userId, password, false, false);
  const WipeOnExit wipe_typed(typed);
  std::wstring dialled = impl::make_password_digest(userId, keypad_form, true, false);
  const WipeOnExit wipe_dialled(dialled);
  std::wstring stored;
  stored.reserve(typed.size() + dialled.size());
  stored.append(typed).append(dialled);
  return stored;
}

CString MakePassword(const wchar_t* userId, const wchar_t* password) {
  std::wstring password_copy(password != nullptr ? password : L"");
  const WipeOnExit wipe(password_copy);
  return CString(MakePassword(std::wstring(userId != nullptr ? userId : L""), password_copy));
}

bool Validate(const std::wstring& userId, const std::wstring& password, bool keypad,
              const std::wstring& stored) {
  if (password.empty() || stored.size() != kStoredLength) return false;
  const bool pbkdf2 =
      kPbkdf2FormCharacters.find(stored[impl::kDigestTextLength - 1]) != std::wstring_view::npos;
  std::wstring digest = impl::make_password_digest(userId, password, keypad, pbkdf2);
  const WipeOnExit wipe(digest);
  const std::size_t half = keypad ? impl::kDigestTextLength : 0;
  return same_text(digest, std::wstring_view{stored}.substr(half, impl::kDigestTextLength));
}

void MdgC(const unsigned char* data, int length, unsigned char* digest) {
  n7crypto::Md5 md5;
  md5.update(data, static_cast<std::size_t>(std::max(length, 0)));
  md5.final(digest);
}

void MdgR(const std::wstring& userId, const std::wstring& password, const unsigned char* challenge,
          unsigned char* digest) {
  n7crypto::Md5 md5;
  update_with_terminator(md5, impl::lower_copy(userId));
  update_with_terminator(md5, password);
  md5.update(challenge, kChallengeSize);
  md5.final(digest);
}

void MdgR(const std::wstring& userId, const unsigned char* first, const unsigned char* second,
          unsigned char* digest) {
  n7crypto::Md5 md5;
  update_with_terminator(md5, impl::lower_copy(userId));
  md5.update(first, kChallengeSize);
  md5.update(second, kChallengeSize);
  md5.final(digest);
}

}  // namespace N7A
