#include "n7utility/Utility/StringTable.h"

#include "n7utility/Utility/LibraryModule_internal.h"
#include "n7utility/platform/framework/ModuleState.h"

namespace {

using n7utility::internal::LibraryModule;

constexpr wchar_t kNoInstance[] = L"English Only: Instance handle not initialized.";

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
