#include "n7utility/Utility/RegistryKey.h"

#include <array>

namespace {

// The class name QueryInfo reads and discards: 31 characters and the terminator.
constexpr DWORD kClassBufferCharacters = 32;

}  // namespace

CRegistryKey::~CRegistryKey() { Close(); }

LONG CRegistryKey::Result(LSTATUS error) {
  m_lLastError = error;
  return error == ERROR_SUCCESS ? 0 : -1;
}

LONG CRegistryKey::Create(HKEY parent, LPCWSTR sub_key, int is_volatile, DWORD access,
                          LPSECURITY_ATTRIBUTES security) {
  const DWORD options = is_volatile != 0 ? REG_OPTION_VOLATILE : REG_OPTION_NON_VOLATILE;
  const LSTATUS error = RegCreateKeyExW(parent, sub_key, 0, nullptr, options, access, security,
                                        &m_hKey, &m_dwDisposition);
  return Result(error) == 0 ? static_cast<LONG>(m_dwDisposition) : -1;
}

LONG CRegistryKey::Create(CRegistryKey& parent, LPCWSTR sub_key, int is_volatile, DWORD access,
                          LPSECURITY_ATTRIBUTES security) {
  return Create(parent.m_hKey, sub_key, is_volatile, access, security);
}

LONG CRegistryKey::Open(HKEY parent, LPCWSTR sub_key, DWORD access) {
  return Result(RegOpenKeyExW(parent, sub_key, 0, access, &m_hKey));
}

LONG CRegistryKey::Open(CRegistryKey& parent, LPCWSTR sub_key, DWORD access) {
  return Open(parent.m_hKey, sub_key, access);
}

LONG CRegistryKey::ConnectRegistry(HKEY predefined, LPCWSTR machine) {
  return Result(RegConnectRegistryW(machine, predefined, &m_hKey));
}

LONG CRegistryKey::Close() {
  if (m_hKey == nullptr) return Result(static_cast<LSTATUS>(ERROR_BADKEY));
  const LSTATUS error = RegCloseKey(m_hKey);
  m_hKey = nullptr;
  return Result(error);
}

LONG CRegistryKey::DeleteKey(LPCWSTR sub_key) { return Result(RegDeleteKeyW(m_hKey, sub_key)); }

LONG CRegistryKey::DeleteValue(LPCWSTR value_name) {
  return Result(RegDeleteValueW(m_hKey, value_name));
}

LONG CRegistryKey::EnumSubKey(DWORD index, LPWSTR name, DWORD& name_length,
                              FILETIME& last_write_time) {
  return Result(RegEnumKeyExW(m_hKey, index, name, &name_length, nullptr, nullptr, nullptr,
                              &last_write_time));
}

LONG CRegistryKey::EnumValue(DWORD index, LPWSTR name, DWORD& name_length, DWORD& type, LPBYTE data,
                             DWORD& data_size) {
  return Result(RegEnumValueW(m_hKey, index, name, &name_length, nullptr, &type, data, &data_size));
}

LONG CRegistryKey::Flush() { return Result(RegFlushKey(m_hKey)); }

LONG CRegistryKey::QueryInfo(DWORD& sub_keys, DWORD& max_sub_key_length, DWORD& values,
                             DWORD& max_value_name_length, DWORD& max_value_length,
                             DWORD& security_descriptor_size, FILETIME& last_write_time) {
  std::array<wchar_t, kClassBufferCharacters> class_name{};
  DWORD class_length = kClassBufferCharacters;
  DWORD max_class_length = 0;
  return Result(RegQueryInfoKeyW(m_hKey, class_name.data(), &class_length, nullptr, &sub_keys,
                                 &max_sub_key_length, &max_class_length, &values,
                                 &max_value_name_length, &max_value_length,
                                 &security_descriptor_size, &last_write_time));
}

LONG CRegistryKey::QueryValue(LPCWSTR value_name, DWORD& type, LPBYTE data, DWORD& data_size) {
  return Result(RegQueryValueExW(m_hKey, value_name, nullptr, &type, data, &data_size));
}

LONG CRegistryKey::SetValue(LPCWSTR value_name, DWORD type, const BYTE* data, DWORD data_size) {
  return Result(RegSetValueExW(m_hKey, value_name, 0, type, data, data_size));
}

LONG CRegistryKey::Save(LPCWSTR file, LPSECURITY_ATTRIBUTES security) {
  return Result(RegSaveKeyW(m_hKey, file, security));
}

LONG CRegistryKey::Restore(LPCWSTR file) { return Result(RegRestoreKeyW(m_hKey, file, 0)); }

LONG CRegistryKey::GetSecurity(SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor,
                               DWORD& descriptor_size) {
  return Result(RegGetKeySecurity(m_hKey, information, descriptor, &descriptor_size));
}

LONG CRegistryKey::SetSecurity(SECURITY_INFORMATION information, PSECURITY_DESCRIPTOR descriptor) {
  return Result(RegSetKeySecurity(m_hKey, information, descriptor));
}

LONG CRegistryKey::NotifyChange(DWORD filter, int watch_subtree, HANDLE event) {
  const BOOL asynchronous = event != nullptr ? TRUE : FALSE;
  return Result(RegNotifyChangeKeyValue(m_hKey, watch_subtree, filter, event, asynchronous));
}

LONG CRegistryKey::GetValue(LPCWSTR value_name, CString& text) {
  // Twice the room read, so the text always ends in a NUL.
  std::array<wchar_t, std::size_t{2} * kMaxTextCharacters> buffer{};
  DWORD type = 0;
  DWORD size = kMaxTextCharacters * sizeof(wchar_t);
  const LONG result = QueryValue(value_name, type, reinterpret_cast<LPBYTE>(buffer.data()), size);
  text = result == 0 ? CString(buffer.data()) : CString();
  return result;
}

LONG CRegistryKey::GetValue(LPCWSTR value_name, DWORD& number) {
  DWORD value = 0;
  DWORD type = 0;
  DWORD size = sizeof value;
  const LONG result = QueryValue(value_name, type, reinterpret_cast<LPBYTE>(&value), size);
  if (result == 0) number = value;
  return result;
}
