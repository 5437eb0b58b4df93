#include "n7utility/Utility/StringTable.h"

#include "n7utility/Utility/StringTable_internal.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/framework/ModuleState.h"

namespace n7utility::internal {

AFX_EXTENSION_MODULE& LibraryModule() {
  static AFX_EXTENSION_MODULE module;
  return module;
}

}  // namespace n7utility::internal

namespace {

using n7utility::internal::LibraryModule;

constexpr wchar_t kNoInstance[] = L"English Only: Instance handle not initialized.";

// Sets up the library's extension module when the library loads: the module that holds this code
// also holds the library's string table.
struct LibraryModuleSetup {
  LibraryModuleSetup() {
    AfxInitExtensionModule(LibraryModule(), n7platform::ModuleFromAddress(&LibraryModule()));
    static n7platform::NoDestructor<CDynLinkLibrary> link(LibraryModule());
  }
};
// Only allocation can fail here, and a library that cannot load its own state must not load.
const LibraryModuleSetup library_module_setup;  // NOLINT(cert-err58-cpp)

// Makes a module the current resource module for a scope, then puts the previous one back unless
// that was null.
class ResourceHandleSwitch {
 public:
  explicit ResourceHandleSwitch(HINSTANCE module) : previous_(AfxGetResourceHandle()) {
    AfxSetResourceHandle(module);
  }
  ~ResourceHandleSwitch() {
    if (previous_ != nullptr) AfxSetResourceHandle(previous_);
  }
  ResourceHandleSwitch(const ResourceHandleSwitch&) = delete;
  ResourceHandleSwitch& operator=(const ResourceHandleSwitch&) = delete;

 private:
  HINSTANCE previous_;
};

}  // namespace

CString CStringTable::Load(UINT id) {
  n7platform::CriticalSectionLock hold(m_lock);
  const HINSTANCE library = LibraryModule().hResource;
  if (library == nullptr) return CString(kNoInstance);
  const ResourceHandleSwitch use_library(library);
  CString text;
  text.LoadString(id);
  return text;
}
