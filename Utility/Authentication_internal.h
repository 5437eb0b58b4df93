// What the three parts of the authentication services (stored password values, the password blob,
// the SRP-6a login) share, and the steps of the stored password value, for its tests.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/n7crypto/key.h"

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

// Password algorithms as the blob readers report them.
inline constexpr int kAlgorithmNone = 0;
inline constexpr int kAlgorithmPbkdf2Sha256 = 1;
inline constexpr int kAlgorithmLegacy = 2;

// Reads the fields of an extended password blob into the outputs given (null: not wanted),
// which are cleared first. Throws "error.n7crypto.srp.invalidArg.blob" for an empty blob; a
// malformed blob or bad base64 ends the reading without error, with the fields read before it.
void crack_extended_password_blob(const std::string& blob, std::vector<unsigned char>* salt,
                                  std::vector<unsigned char>* hash, int* algorithm, int* iterations,
                                  std::string* legacy);

// Reads the public password properties into the outputs given (null: not wanted), which are
// cleared first. A document whose root is not "passwd-props" gives the cleared outputs, and an
// iteration count that is not a 32-bit number 0. Throws "error.n7crypto.srp.invalidArg.blob"
// for an empty text, malformed XML or bad base64.
void crack_public_password_props(const std::string& props, std::vector<unsigned char>* salt,
                                 int* algorithm, unsigned int* iterations);

// The public password properties text: salt and algorithm, and for PBKDF2 the iteration count.
std::string make_public_password_props(const unsigned char* salt, std::size_t saltLength,
                                       int algorithm, int iterations);

// The bytes of base64 `text`, stopping at the first "=" (only "=" may follow), with the errors
// of n7core's base64 tables: a character outside the alphabet, or bits left over after the last
// whole byte that are not zero.
std::vector<unsigned char> decode_base64(std::string_view text);

// The file label the login's errors carry, whichever file raises them. Fixed: it names the one file
// the three were first written in.
inline constexpr char kSourceFile[] = "Utility/Authentication";

// Throws "error.n7crypto.srp.invalidArg.blob" with `message`, located at `function`, `line`.
[[noreturn]] void raise_blob_error(const char* message, const char* function, int line);

// x of a "legacy" blob: SHA-256(salt, SHA-256(userId ":" legacyPassword)), the user ID as given.
n7crypto::Key legacy_password_key(const std::vector<unsigned char>& salt, const std::string& userId,
                                  const std::string& legacyPassword);

}  // namespace N7A::impl
