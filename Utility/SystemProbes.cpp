#include "Utility/SystemProbes.h"

#include <string>

#include "Utility/RegistryKey.h"
#include "platform/Exceptions.h"
#include "platform/File.h"
#include "platform/Registry.h"
#include "platform/Resources.h"
#include "platform/Services.h"

namespace {

// Where the system keeps temporary files when the environment names no usable directory.
constexpr wchar_t kSystemTempDir[] = L"/tmp";
constexpr DWORD kTempNameCapacity = 260;
// The system's own DCOM switch.
constexpr wchar_t kOleKey[] = L"SOFTWARE\\Microsoft\\Ole";
constexpr wchar_t kEnableDcomValue[] = L"EnableDCOM";

// The service state, or nothing when the service cannot be queried. Closes what it opened.
bool QueryState(SC_HANDLE manager, const wchar_t* service_name, DWORD* state) {
  SC_HANDLE service = OpenServiceW(manager, service_name, SERVICE_QUERY_STATUS);
  if (service == nullptr) return false;
  SERVICE_STATUS status{};
  const bool queried = QueryServiceStatus(service, &status) != FALSE;
  CloseServiceHandle(service);
  *state = status.dwCurrentState;
  return queried;
}

// Runs a framework call whose exception does not change the caller's answer.
template <typename Call>
void IgnoringFrameworkErrors(Call&& call) {
  try {
    call();
  } catch (CException* e) {
    delete e;
  }
}

}  // namespace

int IsDCOMReady() {
  // Looked up only in a module already loaded: loading the COM library is not this probe's job.
  HMODULE ole32 = GetModuleHandleW(L"OLE32");
  return ole32 == nullptr || GetProcAddress(ole32, "CoInitializeEx") == nullptr ? 1 : 0;
}

int IsDCOMEnabled() {
  CRegistryKey key;
  if (key.Open(HKEY_LOCAL_MACHINE, kOleKey, KEY_READ) != 0) return 0;
  CString value;
  if (key.GetValue(kEnableDcomValue, value) != 0) return 0;
  return value.CompareNoCase(L"Y") == 0 ? 1 : 0;
}

int DCOMEnables(int enable) {
  CRegistryKey key;
  if (key.Open(HKEY_LOCAL_MACHINE, kOleKey, KEY_WRITE) != 0) return 0;
  const wchar_t setting[] = {enable != 0 ? L'Y' : L'N', L'\0'};
  return key.SetValue(kEnableDcomValue, REG_SZ, reinterpret_cast<const BYTE*>(setting),
                      sizeof setting) == 0
             ? 1
             : 0;
}

int IsServiceRunning(const wchar_t* service_name) {
  try {
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, GENERIC_READ);
    if (manager == nullptr) return 0;
    DWORD state = SERVICE_STOPPED;
    const bool queried = QueryState(manager, service_name, &state);
    CloseServiceHandle(manager);
    return queried && state != SERVICE_STOPPED && state != SERVICE_PAUSED ? 1 : 0;
  } catch (...) {
    return 0;
  }
}

bool IsWritableDir(const CString& path) {
  const DWORD attributes = GetFileAttributesW(path);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    return false;
  }
  wchar_t probe[kTempNameCapacity];
  if (GetTempFileNameW(path, L"TMP", 0, probe) == 0) return false;
  CFile file;
  const bool writable = file.Open(probe, CFile::modeCreate | CFile::modeWrite) != FALSE;
  IgnoringFrameworkErrors([&] { file.Close(); });
  IgnoringFrameworkErrors([&] { CFile::Remove(probe); });
  return writable;
}

bool GetValidTempDir(CString& out) {
  const DWORD needed = GetTempPathW(0, nullptr);
  std::wstring buffer(needed + 2, L'\0');
  GetTempPathW(needed + 2, buffer.data());
  out = buffer.c_str();
  bool writable = IsWritableDir(out);
  if (!writable) {
    out = kSystemTempDir;
    writable = IsWritableDir(out);
  }
  if (writable && !out.str().ends_with(L'/')) out += L'/';
  return writable;
}
