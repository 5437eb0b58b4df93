#include "n7utility/Utility/LibraryModule_internal.h"

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

}  // namespace
