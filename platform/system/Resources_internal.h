// The backend of the resource calls that finds a module's resource table, replaceable so that
// tests can make a lookup fail or throw where no real module would.
#pragma once

#include "n7utility/platform/system/ResourceTable.h"
#include "n7utility/platform/system/Resources.h"

namespace n7platform::internal {

// Returns the table of a valid, non-null module, or null when it has none.
using ResourceTableLookup = const N7ResourceTable* (*)(HMODULE module);

// The lookup the resource calls use from now on (null: the dynamic linker's, the default);
// returns the one used before.
ResourceTableLookup SetResourceTableLookup(ResourceTableLookup lookup);

// The dynamic linker's lookup: the module's exported table, when the symbol lies in the module.
const N7ResourceTable* DynamicResourceTable(HMODULE module);

}  // namespace n7platform::internal
