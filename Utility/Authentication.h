// N7A: the stored password values of users and their check, the MD5 digests of the older
// challenge/response logins, the extended password blob, and both sides of the SRP-6a login.
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

#include "n7utility/n7crypto/key.h"
#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/framework/CString.h"

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

// ---- The SRP-6a login ----
//
// Both sides of a login on the process-wide SRP context (SHA-256 over the 1024-bit group of
// RFC 5054: A and B are 128 bytes, K, M1 and M2 are 32 bytes) and the default random provider.
// The server holds the user's extended password blob; the client holds the password and learns
// the salt, the algorithm and the iteration count from the public password properties:
//
//   client                                          server
//   SRPClientCreateA(a, A)               -- A -->   MakeExtendedChallengeRound1(.., A, .., props)
//   SRPClientCreateM1(.., props, B, K, M1) <-- B, props --
//                                        -- M1 -->  MakeExtendedChallengeRound2(.., M1, B, K, M2)
//   SRPClientValidateM2(.., M2)          <-- M2 --
//
// After the last step both hold the same session key K. Secrets (a, K and the password key x)
// live only in n7crypto::Key buffers or are wiped. Failures are n7core::ErrorException with the
// codes "error.n7crypto.srp.invalidArg.blob" (empty or malformed blob or properties),
// "error.n7crypto.srp.invalidArg.hashAlgorithm" ("Unknown hash algorithm"),
// "error.n7crypto.srp.invalidArg.size" ("Unexpected argument data width": A or B not 128 bytes,
// a salt under 16 bytes, an a under 32 bytes, M1, K or M2 not 32 bytes, an empty user ID) and
// "error.n7crypto.srp.protocolViolation" (a peer's A or B that is 0 modulo N). All may run on any
// number of threads at once. An empty vector argument counts as no bytes at all.

// Client, step 1: draws the 32-byte secret `a` and puts A = g^a mod N (128 bytes) into `A`.
N7_EXPORT void SRPClientCreateA(n7crypto::Key& a, std::vector<unsigned char>& A);

// Client, step 2: derives the password key x from `userId` and `password` (UTF-8) as the
// properties `props` say, then puts the session key into `K` and the proof into `M1`. The salt
// always comes from `props`; `unusedSalt` is not read. Neither `K` nor `M1` is written when it
// throws. An iteration count above 2147483647 is refused with
// "error.n7core.safeCast.valueTruncated" rather than wrapped.
N7_EXPORT void SRPClientCreateM1(const std::string& userId, const std::string& password,
                                 const std::string& props,
                                 const std::vector<unsigned char>& unusedSalt,
                                 const n7crypto::Key& a, const std::vector<unsigned char>& A,
                                 const std::vector<unsigned char>& B, n7crypto::Key& K,
                                 std::vector<unsigned char>& M1);

// Client, step 3: whether the server's proof `M2` matches A, M1 and K. The properties must name
// a known algorithm even though the check does not depend on it.
N7_EXPORT bool SRPClientValidateM2(const std::string& props, const std::vector<unsigned char>& A,
                                   const std::vector<unsigned char>& M1, const n7crypto::Key& K,
                                   const std::vector<unsigned char>& M2);

// Server, round 1: from the user's `blob` and the client's `A`, draws the secret b and gives the
// salt, B, the session key K and the public password properties to send with B. `userId` is not
// read. The outputs are cleared first; when it throws, `K` and `B` stay cleared while `salt` and
// `props` keep what was read before the failure.
N7_EXPORT void MakeExtendedChallengeRound1(const std::string& userId, const std::string& blob,
                                           const std::vector<unsigned char>& A,
                                           std::vector<unsigned char>& salt,
                                           std::vector<unsigned char>& B, n7crypto::Key& K,
                                           std::string& props);

// Server, round 2: whether the client's `M1` proves it holds `K`; only then is the server's proof
// put into `M2`, which is emptied first. Note the order: M1 (32 bytes) before B (128 bytes).
N7_EXPORT bool MakeExtendedChallengeRound2(const std::string& userId, const std::string& blob,
                                           const std::vector<unsigned char>& A,
                                           const std::vector<unsigned char>& M1,
                                           const std::vector<unsigned char>& B,
                                           const n7crypto::Key& K, std::vector<unsigned char>& M2);

}  // namespace N7A
