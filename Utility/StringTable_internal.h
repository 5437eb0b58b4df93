// The library's own framework extension module, set up when the library loads: its module and the
// resource module that holds the library's string table.
#pragma once

#include "n7utility/platform/framework/ModuleState.h"

namespace n7utility::internal {

AFX_EXTENSION_MODULE& LibraryModule();

}  // namespace n7utility::internal
