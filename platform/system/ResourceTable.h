// The resource table a module carries: the layout shared by the resource compiler's generated
// source (tools/n7rc) and the platform layer's resource calls (platform/system/Resources.h).
// Installed, since programs outside the project compile their own tables with the installed n7rc.
//
// A module (the program, the library, a language resource module) that has resources exports the
// C function `n7_module_resources`, which returns its table. The platform layer finds a module's
// table by asking the dynamic linker for that name in the module and checking that the symbol it
// gets lies in that very module, so a module without a table of its own never shows another's.
// (A function rather than an exported variable: every module defines the same name, which the
// address sanitizer would take for a clash of globals.)
//
// Data layouts, as Win32 lays them out with WCHAR = wchar_t:
// - string tables (type 6): one item per block of 16 strings, name = id / 16 + 1; the block is 16
//   counted strings, each a wchar_t count followed by that many wchar_t (no terminator);
// - message tables (type 11, name 1): a DWORD block count, then per block of consecutive ids
//   {DWORD low id, DWORD high id, DWORD byte offset of its first entry}, then the entries, each
//   {WORD byte length of the entry, WORD flags (1: wide text), wchar_t text ending in 0}, the
//   length a multiple of 4;
// - every other item: its bytes as given.
#pragma once

extern "C" {

struct N7ResourceEntry {
  const wchar_t* type_name;  // upper case; null when the type is `type_id`
  const wchar_t* name;       // upper case; null when the name is `name_id`
  const void* data;          // null when `size` is 0
  unsigned int size;         // in bytes
  unsigned short type_id;
  unsigned short name_id;
  unsigned short language;
};

struct N7ResourceTable {
  unsigned int format;  // N7_RESOURCE_TABLE_FORMAT of the compiler that made it
  unsigned int count;
  const N7ResourceEntry* entries;
};

}  // extern "C"

// The exported function's type.
using N7ResourceTableFunction = const N7ResourceTable* (*)();

#define N7_RESOURCE_TABLE_FORMAT 1u
#define N7_RESOURCE_TABLE_SYMBOL "n7_module_resources"
