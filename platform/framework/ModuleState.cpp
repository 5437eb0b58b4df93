#include "n7utility/platform/framework/ModuleState.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/SyncObjects.h"

namespace {

struct ModuleState {
  std::atomic<HINSTANCE> resource_handle{GetModuleHandleW(nullptr)};
  CCriticalSection lock;
  std::vector<const CDynLinkLibrary*> libraries GUARDED_BY(lock);  // the most recent first
};

ModuleState& State() {
  static n7platform::NoDestructor<ModuleState> state;
  return *state;
}

// The modules to search after the current one, copied so that no lock is held while loading.
std::vector<HMODULE> ExtensionResources() {
  ModuleState& state = State();
  n7platform::CriticalSectionLock hold(state.lock);
  std::vector<HMODULE> modules;
  for (const CDynLinkLibrary* library : state.libraries) {
    if (library->m_hResource != nullptr) modules.push_back(library->m_hResource);
  }
  return modules;
}

// A read-only view of string `id` of `module`; empty when it has none.
std::wstring_view StringOf(HINSTANCE module, UINT id) {
  LPCWSTR text = nullptr;
  const int length = LoadStringW(module, id, reinterpret_cast<LPWSTR>(&text), 0);
  if (length <= 0) return {};
  return {text, static_cast<std::size_t>(length)};
}

}  // namespace

HINSTANCE AfxGetInstanceHandle() { return GetModuleHandleW(nullptr); }

HINSTANCE AfxGetResourceHandle() { return State().resource_handle.load(); }

void AfxSetResourceHandle(HINSTANCE resource) { State().resource_handle.store(resource); }

BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HMODULE module) {
  state.hModule = module;
  state.hResource = module;
  state.bInitialized = TRUE;
  return TRUE;
}

CDynLinkLibrary::CDynLinkLibrary(AFX_EXTENSION_MODULE& state)
    : m_hModule(state.hModule), m_hResource(state.hResource) {
  ModuleState& module_state = State();
  n7platform::CriticalSectionLock hold(module_state.lock);
  module_state.libraries.insert(module_state.libraries.begin(), this);
}

CDynLinkLibrary::~CDynLinkLibrary() {
  ModuleState& module_state = State();
  n7platform::CriticalSectionLock hold(module_state.lock);
  std::erase(module_state.libraries, this);
}

CWinApp::CWinApp() : m_hInstance(AfxGetInstanceHandle()) {}

CWinApp::~CWinApp() = default;

HINSTANCE AfxFindStringResourceHandle(UINT id) {
  const HINSTANCE current = AfxGetResourceHandle();
  if (current != nullptr && !StringOf(current, id).empty()) return current;
  for (const HMODULE module : ExtensionResources()) {
    if (module != current && !StringOf(module, id).empty()) return module;
  }
  return nullptr;
}

int AfxLoadString(UINT id, LPWSTR buffer, UINT size) {
  if (buffer == nullptr || size == 0) return 0;
  buffer[0] = L'\0';
  const HINSTANCE module = AfxFindStringResourceHandle(id);
  if (module == nullptr) return 0;
  return LoadStringW(module, id, buffer, static_cast<int>(std::min<UINT>(size, 0x7FFFFFFF)));
}

BOOL CString::LoadString(UINT id) {
  const HINSTANCE module = AfxFindStringResourceHandle(id);
  return module != nullptr ? LoadString(module, id) : FALSE;
}

BOOL CString::LoadString(HINSTANCE module, UINT id) {
  const std::wstring_view text = StringOf(module, id);
  if (text.empty()) return FALSE;
  text_.assign(text);
  return TRUE;
}
