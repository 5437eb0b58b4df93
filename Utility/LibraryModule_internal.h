// The library's own framework extension module, set up when the library loads: its module and the
// resource module that holds the library's strings. The string table and the error pool both load
// from it; no family owns it.
#pragma once

#include "n7utility/platform/framework/ModuleState.h"

namespace n7utility::internal {

AFX_EXTENSION_MODULE& LibraryModule();

}  // namespace n7utility::internal
