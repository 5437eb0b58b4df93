// Modules and their resources: the Win32 module, resource and string calls, over the resource
// tables that the project's resource compiler (tools/n7rc) links into modules.
//
// Modules. An HMODULE (the same as an HINSTANCE) is the address at which the dynamic linker mapped
// the module, its first byte, as on Windows; a value that is no loaded module's base is refused
// with ERROR_INVALID_HANDLE. Where Win32 takes a null module to mean the main program, so do these
// calls. LoadLibraryW is dlopen; a module stays loaded until each LoadLibraryW has its
// FreeLibrary.
//
// Resources. A module's resources are the table compiled into it; a module without a table has
// none (ERROR_RESOURCE_DATA_NOT_FOUND). Types and names are numbers (MAKEINTRESOURCEW) or texts;
// texts are compared without regard to ASCII case, and "#123" names the number 123, as in Win32.
// The data is read-only and lives as long as the module: LoadResource and LockResource return a
// pointer to it, and nothing needs freeing.
//
// Languages. FindResourceExW looks for the language asked for, then its primary language with
// the neutral sublanguage, then the neutral language. When the language asked for is itself
// neutral (LANG_NEUTRAL with any sublanguage), it goes on to US English and then to the item's
// first language in the table. Otherwise it fails with ERROR_RESOURCE_LANG_NOT_FOUND.
// FindResourceW and LoadStringW ask for the neutral language. (Windows would also try the
// thread's and the user's languages; this layer has no such setting.)
//
// String tables hold wchar_t text (see platform/system/ResourceTable.h for the layouts).
//
// The user-interface resources (menus, icons, cursors, bitmaps, accelerator tables) have no
// window system to be built into: LoadMenuW and its kind return a handle that points at the
// resource's bytes in the module, valid as long as the module is loaded, and need no destroying.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// NOLINTBEGIN(readability-identifier-naming): the Win32 names

using LANGID = WORD;

struct HINSTANCE_Opaque;
using HINSTANCE = HINSTANCE_Opaque*;
using HMODULE = HINSTANCE;
struct HRSRC_Opaque;
using HRSRC = HRSRC_Opaque*;
using HGLOBAL = void*;

// Opaque handles to user-interface resources: each points at the resource's bytes.
struct HMENU_Opaque;
using HMENU = HMENU_Opaque*;
struct HICON_Opaque;
using HICON = HICON_Opaque*;
using HCURSOR = HICON;
struct HBITMAP_Opaque;
using HBITMAP = HBITMAP_Opaque*;
struct HACCEL_Opaque;
using HACCEL = HACCEL_Opaque*;

// A resource number where a type or name is expected: a pointer whose value is the number.
inline LPWSTR MakeIntResourceW(WORD id) {
  return reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(id));  // NOLINT(performance-no-int-to-ptr)
}
#define MAKEINTRESOURCEW(i) MakeIntResourceW(static_cast<WORD>(i))
#define IS_INTRESOURCE(r) ((reinterpret_cast<ULONG_PTR>(r) >> 16) == 0)

#define RT_CURSOR MAKEINTRESOURCEW(1)
#define RT_BITMAP MAKEINTRESOURCEW(2)
#define RT_ICON MAKEINTRESOURCEW(3)
#define RT_MENU MAKEINTRESOURCEW(4)
#define RT_DIALOG MAKEINTRESOURCEW(5)
#define RT_STRING MAKEINTRESOURCEW(6)
#define RT_FONTDIR MAKEINTRESOURCEW(7)
#define RT_FONT MAKEINTRESOURCEW(8)
#define RT_ACCELERATOR MAKEINTRESOURCEW(9)
#define RT_RCDATA MAKEINTRESOURCEW(10)
#define RT_MESSAGETABLE MAKEINTRESOURCEW(11)
#define RT_GROUP_CURSOR MAKEINTRESOURCEW(12)
#define RT_GROUP_ICON MAKEINTRESOURCEW(14)
#define RT_VERSION MAKEINTRESOURCEW(16)
#define RT_HTML MAKEINTRESOURCEW(23)
#define RT_MANIFEST MAKEINTRESOURCEW(24)

inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_RESOURCE_DATA_NOT_FOUND = 1812;
inline constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
inline constexpr DWORD ERROR_RESOURCE_LANG_NOT_FOUND = 1815;

inline constexpr DWORD LOAD_LIBRARY_AS_DATAFILE = 0x00000002u;
inline constexpr UINT IMAGE_BITMAP = 0;
inline constexpr UINT LR_DEFAULTCOLOR = 0;

// ---- Modules ----

// The full path of the module's file (null: the main program). Returns the characters written
// without the terminator; a buffer too small gets the path cut to size - 1 characters and a
// terminator, and the call returns `size` with ERROR_INSUFFICIENT_BUFFER. 0 on failure; a path
// that is not UTF-8 has no wide form (ERROR_NO_UNICODE_TRANSLATION).
N7_EXPORT DWORD GetModuleFileNameW(HMODULE module, LPWSTR file_name, DWORD size);
// Null: the main program. Otherwise the loaded module of that name: a path, or a file name the
// dynamic linker knows. Does not load anything; null with ERROR_MOD_NOT_FOUND when it is not
// loaded.
N7_EXPORT HMODULE GetModuleHandleW(LPCWSTR module_name);
// Loads the module (dlopen, local symbols); null with ERROR_MOD_NOT_FOUND when it cannot be.
N7_EXPORT HMODULE LoadLibraryW(LPCWSTR file_name);
// `file` must be null. LOAD_LIBRARY_AS_DATAFILE is accepted and loads the module as LoadLibraryW
// does: a resource module runs no code of its own. Other flags fail with ERROR_INVALID_PARAMETER.
N7_EXPORT HMODULE LoadLibraryExW(LPCWSTR file_name, HANDLE file, DWORD flags);
N7_EXPORT BOOL FreeLibrary(HMODULE module);

// An exported function, as the caller casts it to its real type.
using FARPROC = void (*)();
// The address of the symbol `name` of a loaded module (null: the main program and the libraries
// loaded with it); null with ERROR_PROC_NOT_FOUND when the module has no such symbol, or
// ERROR_INVALID_HANDLE when `module` is no loaded module.
N7_EXPORT FARPROC GetProcAddress(HMODULE module, LPCSTR name);

// ---- Resources ----

N7_EXPORT HRSRC FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type);
N7_EXPORT HRSRC FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language);
N7_EXPORT HGLOBAL LoadResource(HMODULE module, HRSRC resource);
N7_EXPORT LPVOID LockResource(HGLOBAL data);
N7_EXPORT DWORD SizeofResource(HMODULE module, HRSRC resource);

// String `id` of the module's string table (null: the main program). With `size` > 0, copies at
// most size - 1 characters and a terminator into `buffer` and returns the count copied. With
// `size` 0, stores a read-only pointer to the string itself (not terminated) at
// *reinterpret_cast<LPCWSTR*>(buffer) and returns its length. 0 when the string is missing or
// empty (ERROR_RESOURCE_NAME_NOT_FOUND for a string missing from its block).
N7_EXPORT int LoadStringW(HINSTANCE instance, UINT id, LPWSTR buffer, int size);

// ---- User-interface resources (see above) ----

N7_EXPORT HACCEL LoadAcceleratorsW(HINSTANCE instance, LPCWSTR name);
N7_EXPORT HBITMAP LoadBitmapW(HINSTANCE instance, LPCWSTR name);
N7_EXPORT HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name);
N7_EXPORT HICON LoadIconW(HINSTANCE instance, LPCWSTR name);
N7_EXPORT HMENU LoadMenuW(HINSTANCE instance, LPCWSTR name);
// Only IMAGE_BITMAP from a module, at its own size (width and height 0); the flags are ignored.
// Other types fail with ERROR_INVALID_PARAMETER.
N7_EXPORT HANDLE LoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int width, int height,
                            UINT flags);

// NOLINTEND(readability-identifier-naming)

namespace n7platform {

// The module whose code or data holds `address`; null when none does.
N7_EXPORT HMODULE ModuleFromAddress(const void* address);

// String `index` (0 to 15) of a string-table block of `size` bytes: the block's first `index`
// counted strings are stepped over. Empty when the block ends before it.
N7_EXPORT std::wstring_view StringFromBlock(const void* block, DWORD size, UINT index);

// The text of message `id` in the module's message table (null: the main program), in the
// language asked for or the fallbacks of FindResourceExW; none, with the last error set
// (ERROR_MR_MID_NOT_FOUND, platform/system/FormatMessage.h, for an id the table lacks), when there
// is none.
N7_EXPORT std::optional<std::wstring> LoadMessageText(HMODULE module, DWORD id, WORD language);

}  // namespace n7platform
