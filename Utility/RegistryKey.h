// CRegistryKey: a thin wrapper round one open registry key handle.
//
// Each operation makes exactly one registry call on the wrapped handle, keeps that call's Win32
// error code (0 on success) for GetLastError, and returns 0 on success and -1 on failure (Create
// returns the disposition instead of 0). Nothing is cached, retried, locked, traced or thrown.
//
// Copies share the handle, and both close it when destroyed: a caller that copies a key clears
// all copies but one (by assigning a fresh CRegistryKey to them) first. Create, Open and
// ConnectRegistry overwrite the handle without closing the one held; close it first. An object
// is not for concurrent use; separate objects may be used from separate threads.
//
// GetLastError is 0 before the first operation.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/system/Registry.h"

class N7_EXPORT CRegistryKey {
 public:
  CRegistryKey() = default;
  CRegistryKey(const CRegistryKey&) = default;
  CRegistryKey& operator=(const CRegistryKey&) = default;
  // Closes the handle held, if any.
  virtual ~CRegistryKey();

  // RegCreateKeyExW: REG_CREATED_NEW_KEY (1) or REG_OPENED_EXISTING_KEY (2), or -1. A non-zero
  // `is_volatile` makes a new key volatile.
  LONG Create(HKEY parent, LPCWSTR sub_key, int is_volatile, DWORD access,
              LPSECURITY_ATTRIBUTES security);
  LONG Create(CRegistryKey& parent, LPCWSTR sub_key, int is_volatile, DWORD access,
              LPSECURITY_ATTRIBUTES security);
  LONG Open(HKEY parent, LPCWSTR sub_key, DWORD access);
  LONG Open(CRegistryKey& parent, LPCWSTR sub_key, DWORD access);
  LONG ConnectRegistry(HKEY predefined, LPCWSTR machine);
  // -1 with ERROR_BADKEY (1010) when no key is open; the handle is null afterwards either way.
  LONG Close();

  LONG DeleteKey(LPCWSTR sub_key);
  LONG DeleteValue(LPCWSTR value_name);
  // `name_length` in characters: the buffer's size in, the name's length out.
  LONG EnumSubKey(DWORD index, LPWSTR name, DWORD& name_length, FILETIME& last_write_time);
  LONG EnumValue(DWORD index, LPWSTR name, DWORD& name_length, DWORD& type, LPBYTE data,
                 DWORD& data_size);
  LONG Flush();
  // Fails with ERROR_MORE_DATA (234) when the key's class is longer than 31 characters.
  LONG QueryInfo(DWORD& sub_keys, DWORD& max_sub_key_length, DWORD& values,
                 DWORD& max_value_name_length, DWORD& max_value_length,
                 DWORD& security_descriptor_size, FILETIME& last_write_time);
  // `data` may be null to learn the size; `data_size` in bytes.
  LONG QueryValue(LPCWSTR value_name, DWORD& type, LPBYTE data, DWORD& data_size);
  LONG SetValue(LPCWSTR value_name, DWORD type, const BYTE* data, DWORD data_size);
  LONG Save(LPCWSTR file, LPSECURITY_ATTRIBUTES security);
  LONG Restore(LPCWSTR file);
  LONG GetSecurity(SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor,
                   DWORD& descriptor_size);
  LONG SetSecurity(SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor);
  // Waits for a change (no event), or arms `event` to be set by the next one and returns.
  LONG NotifyChange(DWORD filter, int watch_subtree, HANDLE event);

  // A value read as text: at most kMaxTextCharacters characters (kMaxTextCharacters x
  // sizeof(wchar_t) bytes), whatever its type, up to its first NUL. A longer value fails with
  // ERROR_MORE_DATA; on failure `text` is emptied.
  LONG GetValue(LPCWSTR value_name, CString& text);
  // A value read as a number of at most 4 bytes, whatever its type; a shorter value fills the
  // low bytes and the others are 0. On failure `number` is left unchanged.
  LONG GetValue(LPCWSTR value_name, DWORD& number);

  LONG GetLastError() const { return m_lLastError; }
  operator HKEY() const { return m_hKey; }  // NOLINT(google-explicit-constructor)

  static constexpr DWORD kMaxTextCharacters = 1024;

 private:
  // Keeps `error` as the last error; 0 for success, else -1.
  LONG Result(LSTATUS error);

  HKEY m_hKey = nullptr;
  DWORD m_dwDisposition = 0;
  LONG m_lLastError = 0;
};
