// The Win32 registry calls over a persistent store in SQLite.
//
// Each predefined key (HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER, HKEY_CLASSES_ROOT, HKEY_USERS) is
// one database file in the store directory: the directory named by the environment variable
// N7_REGISTRY_DIR when it is set and not empty; otherwise /var/lib/n7utility/registry for root and
// $XDG_STATE_HOME/n7utility/registry (default ~/.local/state/n7utility/registry) for other users.
// The directory (mode 0700) and the files (mode 0600) are created on first use. Several processes
// may use one store at once: the databases run in WAL mode with a busy timeout, and each write is
// one transaction, so a process killed in the middle of a write leaves the store as it was
// before that write.
//
// The calls keep the Win32 semantics the library's families rely on:
//  - Key and value names are compared without regard to case (Unicode upper case of each
//    character) and keep the case they were created with. A key path separates its names with
//    backslashes; a key name has at most 255 characters, a value name at most 16383, a path at
//    most 512 levels. Data is at most 16 MiB.
//  - Values are typed bytes, kept exactly as given: a REG_SZ value holds the caller's wchar_t
//    bytes (4 per character here), terminator included when the caller counted it.
//  - Subkeys enumerate in the order of their upper-cased names, values in creation order.
//  - A handle carries the access rights it was opened with; a call that needs a right the handle
//    lacks fails with ERROR_ACCESS_DENIED. Rights are not checked against the keys' security
//    descriptors: those are kept as bytes (self-relative format) and returned as they were set,
//    whole, whatever parts are asked for. The predefined handles carry every right.
//  - A volatile key, and its subkeys, are gone after the machine restarts (the store compares the
//    boot id it was created under with the current one).
//  - A store file that is not a database of this store, or that is damaged, fails the calls on
//    that predefined key with ERROR_REGISTRY_CORRUPT; a file that cannot be read or written with
//    ERROR_REGISTRY_IO_FAILED; a store held locked by another process beyond the busy timeout with
//    ERROR_BUSY.
//  - RegConnectRegistryW reaches only this machine (no name, an empty name or the host name).
//  - RegNotifyChangeKeyValue sees changes made by any process on the same store.
//
// All calls are safe to use from any thread. They return the Win32 error code (ERROR_SUCCESS on
// success) and do not touch the thread's last error.
#pragma once

#include <cstdint>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

// An opaque reference to an open key (never dereferenced).
using HKEY = struct N7RegistryKey*;
using PHKEY = HKEY*;
using LSTATUS = LONG;
using ACCESS_MASK = DWORD;
using REGSAM = ACCESS_MASK;
using LPBYTE = BYTE*;
using SECURITY_INFORMATION = DWORD;
using PSECURITY_DESCRIPTOR = void*;
using PFILETIME = FILETIME*;

// The predefined keys, with their Win32 values (sign-extended 32-bit numbers); never pointers.
// NOLINTBEGIN(performance-no-int-to-ptr)
inline const HKEY HKEY_CLASSES_ROOT = reinterpret_cast<HKEY>(std::intptr_t{-0x80000000LL});
inline const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(std::intptr_t{-0x7FFFFFFFLL});
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(std::intptr_t{-0x7FFFFFFELL});
inline const HKEY HKEY_USERS = reinterpret_cast<HKEY>(std::intptr_t{-0x7FFFFFFDLL});
// NOLINTEND(performance-no-int-to-ptr)

// Value types.
inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_DWORD_BIG_ENDIAN = 5;
inline constexpr DWORD REG_LINK = 6;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

// RegCreateKeyExW options and dispositions.
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_OPTION_VOLATILE = 1;
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

// Access rights.
inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_SET_VALUE = 0x0002;
inline constexpr REGSAM KEY_CREATE_SUB_KEY = 0x0004;
inline constexpr REGSAM KEY_ENUMERATE_SUB_KEYS = 0x0008;
inline constexpr REGSAM KEY_NOTIFY = 0x0010;
inline constexpr REGSAM KEY_CREATE_LINK = 0x0020;
inline constexpr REGSAM KEY_WOW64_64KEY = 0x0100;
inline constexpr REGSAM KEY_WOW64_32KEY = 0x0200;
inline constexpr REGSAM DELETE = 0x00010000;
inline constexpr REGSAM READ_CONTROL = 0x00020000;
inline constexpr REGSAM WRITE_DAC = 0x00040000;
inline constexpr REGSAM WRITE_OWNER = 0x00080000;
inline constexpr REGSAM SYNCHRONIZE = 0x00100000;
inline constexpr REGSAM ACCESS_SYSTEM_SECURITY = 0x01000000;
inline constexpr REGSAM MAXIMUM_ALLOWED = 0x02000000;
inline constexpr REGSAM GENERIC_ALL = 0x10000000;
inline constexpr REGSAM GENERIC_EXECUTE = 0x20000000;
inline constexpr REGSAM GENERIC_WRITE = 0x40000000;
inline constexpr REGSAM GENERIC_READ = 0x80000000;
inline constexpr REGSAM KEY_READ = 0x00020019;
inline constexpr REGSAM KEY_WRITE = 0x00020006;
inline constexpr REGSAM KEY_EXECUTE = KEY_READ;
inline constexpr REGSAM KEY_ALL_ACCESS = 0x000F003F;

// RegNotifyChangeKeyValue filters.
inline constexpr DWORD REG_NOTIFY_CHANGE_NAME = 0x01;
inline constexpr DWORD REG_NOTIFY_CHANGE_ATTRIBUTES = 0x02;
inline constexpr DWORD REG_NOTIFY_CHANGE_LAST_SET = 0x04;
inline constexpr DWORD REG_NOTIFY_CHANGE_SECURITY = 0x08;
inline constexpr DWORD REG_NOTIFY_THREAD_AGNOSTIC = 0x10000000;

// RegRestoreKeyW flags.
inline constexpr DWORD REG_FORCE_RESTORE = 0x08;

// Parts of a security descriptor.
inline constexpr SECURITY_INFORMATION OWNER_SECURITY_INFORMATION = 0x01;
inline constexpr SECURITY_INFORMATION GROUP_SECURITY_INFORMATION = 0x02;
inline constexpr SECURITY_INFORMATION DACL_SECURITY_INFORMATION = 0x04;
inline constexpr SECURITY_INFORMATION SACL_SECURITY_INFORMATION = 0x08;

inline constexpr DWORD ERROR_BAD_NETPATH = 53;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_BUSY = 170;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_BADKEY = 1010;
inline constexpr DWORD ERROR_REGISTRY_CORRUPT = 1015;
inline constexpr DWORD ERROR_REGISTRY_IO_FAILED = 1016;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;
inline constexpr DWORD ERROR_CHILD_MUST_BE_VOLATILE = 1021;
inline constexpr DWORD ERROR_INVALID_SECURITY_DESCR = 1338;

// Creates the key `sub_key` (a backslash-separated path, intermediate keys included) below `key`,
// or opens it when it exists; `*disposition` (optional) says which. `class_name` (optional) is
// kept with a new key. `options` is REG_OPTION_NON_VOLATILE or REG_OPTION_VOLATILE; the subkeys
// of a volatile key must be volatile (ERROR_CHILD_MUST_BE_VOLATILE). The descriptor in
// `security` (optional, self-relative) becomes the new key's. Creating needs KEY_CREATE_SUB_KEY on
// `key`.
N7_EXPORT LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR sub_key, DWORD reserved, LPWSTR class_name,
                                  DWORD options, REGSAM desired,
                                  const LPSECURITY_ATTRIBUTES security, PHKEY result,
                                  LPDWORD disposition);
// RegCreateKeyExW with every right and no class, options or descriptor.
N7_EXPORT LSTATUS RegCreateKeyW(HKEY key, LPCWSTR sub_key, PHKEY result);
// Opens an existing key; a null or empty `sub_key` opens `key` itself again.
N7_EXPORT LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR sub_key, DWORD options, REGSAM desired,
                                PHKEY result);
// RegOpenKeyExW with every right; a null or empty `sub_key` gives back `key` itself.
N7_EXPORT LSTATUS RegOpenKeyW(HKEY key, LPCWSTR sub_key, PHKEY result);
// A handle with every right to the predefined `key` of this machine: `machine` is null, empty,
// or this host's name (with or without leading backslashes, any case). Another machine fails with
// ERROR_BAD_NETPATH.
N7_EXPORT LSTATUS RegConnectRegistryW(LPCWSTR machine, HKEY key, PHKEY result);
// Closes a handle; closing a predefined key does nothing. Pending asynchronous notifications on
// the handle are signalled.
N7_EXPORT LSTATUS RegCloseKey(HKEY key);

// Deletes `sub_key` (the key itself when empty) with its values. A key with subkeys is refused
// with ERROR_ACCESS_DENIED, as is a predefined key.
N7_EXPORT LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR sub_key);
// Needs KEY_SET_VALUE.
N7_EXPORT LSTATUS RegDeleteValueW(HKEY key, LPCWSTR value_name);

// The subkey at `index` (ERROR_NO_MORE_ITEMS past the last). Sizes count characters: in, the
// buffer's size with the terminator; out, the name's length without it. Needs
// KEY_ENUMERATE_SUB_KEYS.
N7_EXPORT LSTATUS RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD name_length,
                                LPDWORD reserved, LPWSTR class_name, LPDWORD class_length,
                                PFILETIME last_write_time);
// The value at `index`; `data` may be null to learn the size. Needs KEY_QUERY_VALUE.
N7_EXPORT LSTATUS RegEnumValueW(HKEY key, DWORD index, LPWSTR value_name, LPDWORD name_length,
                                LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD data_size);
// Makes every change made so far durable on disk.
N7_EXPORT LSTATUS RegFlushKey(HKEY key);
// Counts and longest lengths (in characters for names and class, in bytes for data). A class
// buffer too small for the class fails with ERROR_MORE_DATA. Needs KEY_QUERY_VALUE.
N7_EXPORT LSTATUS RegQueryInfoKeyW(HKEY key, LPWSTR class_name, LPDWORD class_length,
                                   LPDWORD reserved, LPDWORD sub_keys, LPDWORD max_sub_key_length,
                                   LPDWORD max_class_length, LPDWORD values,
                                   LPDWORD max_value_name_length, LPDWORD max_value_length,
                                   LPDWORD security_descriptor_size, PFILETIME last_write_time);
// Reads a value (the default value for a null or empty name). With `data` null, `*data_size`
// receives the size; a buffer too small fails with ERROR_MORE_DATA and the size needed. A missing
// value fails with ERROR_FILE_NOT_FOUND. Needs KEY_QUERY_VALUE.
N7_EXPORT LSTATUS RegQueryValueExW(HKEY key, LPCWSTR value_name, LPDWORD reserved, LPDWORD type,
                                   LPBYTE data, LPDWORD data_size);
// Writes a value, replacing one of the same name. Needs KEY_SET_VALUE.
N7_EXPORT LSTATUS RegSetValueExW(HKEY key, LPCWSTR value_name, DWORD reserved, DWORD type,
                                 const BYTE* data, DWORD data_size);

// Writes the key's subtree (values, subkeys, classes and descriptors; not volatile keys) to a new
// file; ERROR_ALREADY_EXISTS when the file exists. Needs KEY_READ's value and subkey rights.
N7_EXPORT LSTATUS RegSaveKeyW(HKEY key, LPCWSTR file, const LPSECURITY_ATTRIBUTES security);
// Replaces the key's values and subkeys with those saved in `file` (the key keeps its name). A
// file that is not a complete saved key fails with ERROR_REGISTRY_CORRUPT and changes nothing.
// `flags` is 0 or REG_FORCE_RESTORE. Needs KEY_SET_VALUE and KEY_CREATE_SUB_KEY.
N7_EXPORT LSTATUS RegRestoreKeyW(HKEY key, LPCWSTR file, DWORD flags);

// Copies the key's descriptor; a buffer too small fails with ERROR_INSUFFICIENT_BUFFER and the
// size needed. A key never given one has an empty self-relative descriptor. Needs READ_CONTROL
// (and ACCESS_SYSTEM_SECURITY for the SACL).
N7_EXPORT LSTATUS RegGetKeySecurity(HKEY key, SECURITY_INFORMATION information,
                                    PSECURITY_DESCRIPTOR descriptor, LPDWORD descriptor_size);
// Replaces the key's descriptor with `descriptor` (self-relative, else
// ERROR_INVALID_SECURITY_DESCR). Needs WRITE_OWNER for owner and group, WRITE_DAC for the DACL,
// ACCESS_SYSTEM_SECURITY for the SACL.
N7_EXPORT LSTATUS RegSetKeySecurity(HKEY key, SECURITY_INFORMATION information,
                                    PSECURITY_DESCRIPTOR descriptor);

// Reports the next change of the kinds in `filter` to the key (or, with `watch_subtree`, below
// it), by any process. Synchronous: returns once it happened (or the handle is closed).
// Asynchronous: returns at once and sets `event` then; each call reports one change. Needs
// KEY_NOTIFY.
N7_EXPORT LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL watch_subtree, DWORD filter, HANDLE event,
                                          BOOL asynchronous);
