// FormatMessageW: message texts from the system's table, from a module's message table or from
// the caller, with their inserts filled.
//
// The system table is built in: it holds the English texts of the Win32 error codes and HRESULTs
// that the library produces or meets, each ending in CR LF as the system's texts do. A code
// without an entry has no text (ERROR_MR_MID_NOT_FOUND). An HRESULT of the Win32 facility
// (0x8007xxxx) has the text of its Win32 code. The texts are English; the languages accepted are
// 0, the neutral language in any of its forms and any English.
//
// FORMAT_MESSAGE_FROM_HMODULE looks in the message table of the module given as the source (null:
// the host program) first, then, with FORMAT_MESSAGE_FROM_SYSTEM, in the system's table.
//
// Message syntax: %1 to %99 insert an argument, formatted by the printf-like spec between two
// '!' (default !s!), for example %1!d!, %2!08X!, %3!lu!, %1!*.*s! (width and precision come from
// the arguments before the value: here arguments 1 and 2, and the string is argument 3). In the
// W function !s! is a wide string and !S! or !hs! a narrow (UTF-8) one; l is 32 bits as on
// Windows, ll and I64 are 64 bits, I is pointer sized. The floating-point conversions are not
// supported and fail with ERROR_INVALID_PARAMETER. %0 ends the message without a line break,
// %n is a hard line break (CR LF), %r a carriage return, %t a tab; any other character after '%'
// stands for itself (%%, %., %!, "% ").
//
// Arguments: with FORMAT_MESSAGE_ARGUMENT_ARRAY, `arguments` is really a `const DWORD_PTR*`
// array, as on Windows; otherwise a `va_list*` whose arguments are all pointer-sized (pass
// integers as DWORD_PTR, as on 64-bit Windows), read in insert order up to the highest insert
// the message uses. The caller's va_list is not advanced. A message with inserts and no
// arguments fails with ERROR_INVALID_PARAMETER (unless inserts are ignored).
//
// Line width (the low byte of the flags): 0 keeps the message's own line breaks; a width of 1 to
// 254 turns them into blanks and breaks lines longer than the width at their last blank (or at
// the width when there is none); FORMAT_MESSAGE_MAX_WIDTH_MASK turns them into blanks and adds
// no breaks. Hard breaks (%n) always stay.
//
// Results: the count of characters stored, without the terminator. A result that is empty
// returns 0 with the last error ERROR_SUCCESS. Without FORMAT_MESSAGE_ALLOCATE_BUFFER a buffer too
// small for the text and its terminator gets nothing and the call fails with
// ERROR_INSUFFICIENT_BUFFER. With it, `buffer` is really an `LPWSTR*` that receives a block of at
// least `size` characters, which the caller frees with LocalFree.
#pragma once

#include <cstdarg>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x00000100u;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x00000200u;
inline constexpr DWORD FORMAT_MESSAGE_FROM_STRING = 0x00000400u;
inline constexpr DWORD FORMAT_MESSAGE_FROM_HMODULE = 0x00000800u;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x00001000u;
inline constexpr DWORD FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x00002000u;
inline constexpr DWORD FORMAT_MESSAGE_MAX_WIDTH_MASK = 0x000000FFu;

// The system has no text for the message number.
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;

N7_EXPORT DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD message_id, DWORD language_id,
                               LPWSTR buffer, DWORD size, va_list* arguments);
