#include "n7utility/Utility/SystemProbes.h"

#include <string>

#include "n7utility/Utility/RegistryKey.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/framework/File.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/Resources.h"
#include "n7utility/platform/system/Services.h"

namespace {

// Where the system keeps temporary files when the environment names no usable directory.
constexpr wchar_t kSystemTempDir[] = L"/tmp";
constexpr DWORD kTempNameCapacity = 260;
// The system's own DCOM switch.
constexpr wchar_t kOleKey[] = L"SOFTWARE\\Microsoft\\Ole";
constexpr wchar_t kEnableDcomValue[] = L"EnableDCOM";

// Closes a service control handle when it goes out of scope, also when an exception passes.
class ServiceHandle {
 public:
  explicit ServiceHandle(SC_HANDLE handle) : handle_(handle) {}
  ~ServiceHandle() {
    if (handle_ != nullptr) CloseServiceHandle(handle_);
  }
  ServiceHandle(const ServiceHandle&) = delete;
  ServiceHandle& operator=(const ServiceHandle&) = delete;

  SC_HANDLE get() const { return handle_; }

 private:
  SC_HANDLE handle_;
};

// The service state, or nothing when the service cannot be queried.
bool QueryState(SC_HANDLE manager, const wchar_t* service_name, DWORD* state) {
  const ServiceHandle service(OpenServiceW(manager, service_name, SERVICE_QUERY_STATUS));
  if (service.get() == nullptr) return false;
  SERVICE_STATUS status{};
  if (QueryServiceStatus(service.get(), &status) == FALSE) return false;
  *state = status.dwCurrentState;
  return true;
}

// Runs a framework call whose exception does not change the caller's answer.
template <typename Call>
void IgnoringFrameworkErrors(Call&& call) {
  try {
    call();
  } catch (CException* e) {
    e->Delete();  // frees it only when it is on the heap
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
    const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, GENERIC_READ));
    if (manager.get() == nullptr) return 0;
    DWORD state = SERVICE_STOPPED;
    const bool queried = QueryState(manager.get(), service_name, &state);
    return queried && state != SERVICE_STOPPED && state != SERVICE_PAUSED ? 1 : 0;
  } catch (CException* e) {
    e->Delete();
    return 0;
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
