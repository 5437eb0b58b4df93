// Loads strings from the library's own string table.
//
// Interim version holding the two structured-exception texts in code; the string table built
// into the library's resources replaces it.
#pragma once

#include "platform/CString.h"
#include "platform/windows_types.h"

class CStringTable {
 public:
  CString Load(UINT id) {
    switch (id) {
      case 2:
        return L"A Win32 exception '0x%1!X!' has occurred.  Exception Context Record: [Ebp=0x%2!X! "
               L"Eip=0x%3!X! SegCs=0x%4!X! EFlags=0x%5!X! Esp=0x%6!X! SegSs=0x%7!X!]";
      case 3:
        return L"A Win64 exception '0x%1!X!' has occurred.  Exception Context Record: [Rbp=0x%2!X! "
               L"Rip=0x%3!X! SegCs=0x%4!X! EFlags=0x%5!X! Rsp=0x%6!X! SegSs=0x%7!X!]";
      default:
        return L"";
    }
  }
};
