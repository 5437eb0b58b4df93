// The steps of the stored password value, for its tests.
#pragma once

#include <cstddef>
#include <string>

namespace N7A::impl {

// A digest block: 16 digest bytes, then the form marker (00 00 for MD5, 11 11 for PBKDF2).
inline constexpr std::size_t kDigestBlockSize = 18;
// The characters of one digest text; a stored value holds two.
inline constexpr std::size_t kDigestTextLength = 22;

// The 18-byte block as 22 characters of the alphabet "$A-Za-z1-90.", in base64's bit order.
std::wstring encode_digest_text(const unsigned char* block);

// The digest text of `password` for `userId`: MD5 of the lowered user ID and the password, or
// with `pbkdf2` 16 bytes of PBKDF2-HMAC-SHA1 with the lowered user ID as password and the
// password as salt. `keypad` marks the keypad half. Empty for an empty password.
std::wstring make_password_digest(const std::wstring& userId, const std::wstring& password,
                                  bool keypad, bool pbkdf2);

// `text` with A to Z lowered and every other character kept, as the stored values were made in
// the runtime's default locale.
std::wstring lower_copy(const std::wstring& text);

}  // namespace N7A::impl
