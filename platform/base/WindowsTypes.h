// The Win32 base types, constants and error codes that the library's interfaces are written in,
// with their Windows widths (DWORD is 32 bits here too).
#pragma once

#include <cstdint>

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = unsigned int;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using WCHAR = wchar_t;
using LPVOID = void*;
using LPCVOID = const void*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPDWORD = DWORD*;
using DWORD64 = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = ULONG_PTR;
using LONG_PTR = std::intptr_t;

// An opaque reference to an object of the platform layer (event, mutex, thread, ...).
using HANDLE = void*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

inline constexpr DWORD INFINITE = 0xFFFFFFFFu;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;
inline constexpr DWORD WAIT_OBJECT_0 = 0x00000000u;
inline constexpr DWORD WAIT_ABANDONED_0 = 0x00000080u;
inline constexpr DWORD WAIT_TIMEOUT = 0x00000102u;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_OUTOFMEMORY = 14;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_WRITE_PROTECT = 19;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD RPC_S_SERVER_UNAVAILABLE = 1722;

inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr DWORD CREATE_SUSPENDED = 0x00000004u;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

// A count of 100-nanosecond intervals since 1601-01-01 00:00:00 UTC, split in two halves.
struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};

// Language identifiers: a primary language in the low 10 bits, a sublanguage above it.
inline constexpr WORD LANG_NEUTRAL = 0x00;
inline constexpr WORD LANG_GERMAN = 0x07;
inline constexpr WORD LANG_ENGLISH = 0x09;
inline constexpr WORD LANG_FRENCH = 0x0C;
inline constexpr WORD SUBLANG_NEUTRAL = 0x00;
inline constexpr WORD SUBLANG_DEFAULT = 0x01;
inline constexpr WORD SUBLANG_SYS_DEFAULT = 0x02;
inline constexpr WORD SUBLANG_ENGLISH_US = 0x01;

// NOLINTBEGIN(readability-identifier-naming): the Win32 names
constexpr WORD MAKELANGID(WORD primary, WORD sub) {
  return static_cast<WORD>((sub << 10) | primary);
}
constexpr WORD PRIMARYLANGID(DWORD language) { return static_cast<WORD>(language & 0x3FFu); }
constexpr WORD SUBLANGID(DWORD language) { return static_cast<WORD>((language >> 10) & 0x3Fu); }
// NOLINTEND(readability-identifier-naming)
