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

}  // namespace N7A
