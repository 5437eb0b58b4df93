// N7A: the stored password values of users and their check, and the MD5 digests of the older
// challenge/response logins.
//
// A stored password value is 44 characters: the digest text of the password as typed, then that
// of its telephone-keypad form, so a user on a telephone can log in with the digits alone. The
// digests take wide text as its UTF-16 code units, low byte first, so the values are the same as
// those made on Windows by the suite's other programs. None of these functions fails on bad
// input: an empty or non-matching result is the answer. They keep no state and may run on any
// number of threads at once.
#pragma once

#include <string>
#include <vector>

#include "platform/CString.h"
#include "platform/export.h"

namespace N7A {

// The keypad form of `text`: digits stay, letters A to Z in either case become the digit that
// carries them on a telephone keypad (ABC 2, DEF 3, GHI 4, JKL 5, MNO 6, PQRS 7, TUV 8, WXYZ 9),
// other letters are dropped, and any other character becomes "*" when `markOthers` is set and is
// dropped otherwise.
N7_EXPORT std::wstring KeyMap(const std::wstring& text, bool markOthers);

// The stored password value of `password` for `userId` (44 characters; the user ID's case of A
// to Z does not matter). Empty for an empty password; only the typed half (22 characters), which
// never validates, when the password has no keypad form.
N7_EXPORT std::wstring MakePassword(const std::wstring& userId, const std::wstring& password);
// The same; null pointers count as empty strings.
N7_EXPORT CString MakePassword(const wchar_t* userId, const wchar_t* password);

// Whether `password` matches `stored`: its typed half, or with `keypad` its keypad half, in
// which case `password` is the digits as entered on a telephone. Values made elsewhere with the
// PBKDF2 form of the digests (character 21 is one of "AQgw") are checked in that form.
N7_EXPORT bool Validate(const std::wstring& userId, const std::wstring& password, bool keypad,
                        const std::wstring& stored);

// `digest` (16 bytes) = MD5 of data[0..length); a negative length counts as 0.
N7_EXPORT void MdgC(const unsigned char* data, int length, unsigned char* digest);
// `digest` (16 bytes) = MD5 of the lowered user ID and the password, each with its terminator,
// then the 16 bytes of `challenge`.
N7_EXPORT void MdgR(const std::wstring& userId, const std::wstring& password,
                    const unsigned char* challenge, unsigned char* digest);
// `digest` (16 bytes) = MD5 of the lowered user ID with its terminator, then the 16 bytes of
// `first` and the 16 bytes of `second`.
N7_EXPORT void MdgR(const std::wstring& userId, const unsigned char* first,
                    const unsigned char* second, unsigned char* digest);

// ---- The extended password blob and the public password properties ----
//
// A user's password is stored as an extended password blob: a short text record with the salt,
// the password hash (the SRP private key x), the name of the algorithm that made it, the PBKDF2
// iteration count and the 44-character stored value of MakePassword. The public password
// properties are the part a client needs to compute x: an XML text with the salt, the algorithm
// and the iteration count.

// Names of the blob's fields and of the properties' elements, and the algorithm names.
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELDS_ROOT[];              // "passwd-props"
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELD_SALT[];               // "salt"
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELD_PASSWD_HASH[];        // "passwd-hash"
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELD_ALGORITHM[];          // "alg"
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELD_ITERATIONS[];         // "iterations"
N7_EXPORT extern const char EXTENDED_PASSWORD_FIELD_LEGACY[];             // "legacy"
N7_EXPORT extern const char EXTENDED_PASSWORD_ALGORITHM_PBKDF2_SHA256[];  // "PBKDF2-SHA256"
N7_EXPORT extern const char EXTENDED_PASSWORD_ALGORITHM_LEGACY[];         // "legacy"

// Whether `text` is an extended password blob, that is, one from which a non-empty password
// hash can be read. `legacy` (may be null) receives the blob's stored MakePassword value, or "".
// Never throws for a non-empty text.
N7_EXPORT bool LooksLikeExtendedPassword(const std::string& text, std::string* legacy);

// A new extended password blob for `password` (UTF-8): a fresh 32-byte salt, x = 32 bytes of
// PBKDF2-HMAC-SHA1 over the password's bytes with 1024 iterations (labelled "PBKDF2-SHA256", the
// name the SRP peers know it by), and the MakePassword value. Throws
// "error.n7crypto.randomProvider.failed" when no salt can be drawn.
N7_EXPORT std::string MdgM2(const std::string& userId, const std::string& password);
// The same, converted from and to wide text.
N7_EXPORT CString MdgM2(const CString& userId, const CString& password);

// `blob` = a blob of the "legacy" algorithm for a value made by MakePassword: x =
// SHA-256(salt, SHA-256(userId ":" legacyPassword)). Without a user ID the blob has no hash.
N7_EXPORT void MakeLegacyExtendedPasswordBlob(const std::vector<unsigned char>& salt,
                                              const std::string& userId,
                                              const std::string& legacyPassword, std::string& blob);

// The public password properties of a "legacy" blob with salt[0..saltLength), lines ending in
// CR LF. A null salt counts as empty.
N7_EXPORT std::string MakeLegacyPublicPasswordProperties(const unsigned char* salt,
                                                         unsigned int saltLength);

}  // namespace N7A
