// CStringTable: loads a string of the library's own string table (strings 1 to 3: the error
// pools' internal-error text and the texts of structured exceptions), wherever the framework's
// current resource module points at the time.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/SyncObjects.h"

class N7_EXPORT CStringTable {
 public:
  // String `id` of the library's table, or an empty string when the table lacks it. Makes the
  // library's module the framework's current resource module for the load and puts the previous
  // one back afterwards, also when the load throws; a previous module of null is not put back.
  // Without the library's module (not set up), the text is
  // "English Only: Instance handle not initialized.".
  CString Load(UINT id);

 private:
  CCriticalSection m_lock;  // the loader's lock: one Load at a time through this loader
};
