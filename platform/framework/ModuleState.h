// The framework's resource modules: the program's instance, the current resource module that
// framework loads start from, and the extension modules (libraries with resources of their own)
// that they search after it.
//
// A library with resources sets up its AFX_EXTENSION_MODULE with AfxInitExtensionModule when it
// loads and links it into the search with a CDynLinkLibrary that lives as long as the library.
// The framework's string loads (CString::LoadString, AfxLoadString) take the string from the
// first of these modules that has it: the current resource module, then the extension modules,
// the most recently linked first.
//
// The current resource module is process-wide; switching it is not guarded against other threads
// loading at the same time, as in the framework.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/system/Resources.h"

// NOLINTBEGIN(readability-identifier-naming): the framework's names

struct AFX_EXTENSION_MODULE {
  BOOL bInitialized = FALSE;
  HMODULE hModule = nullptr;
  HMODULE hResource = nullptr;  // where the module's resources are; null for none
};

// The main program.
N7_EXPORT HINSTANCE AfxGetInstanceHandle();
// The current resource module: the main program until AfxSetResourceHandle changes it; may be
// set to null.
N7_EXPORT HINSTANCE AfxGetResourceHandle();
N7_EXPORT void AfxSetResourceHandle(HINSTANCE resource);

// Makes `module` the extension module's code and resource module; TRUE.
N7_EXPORT BOOL AfxInitExtensionModule(AFX_EXTENSION_MODULE& state, HMODULE module);

// Links an extension module's resources into the framework's search for as long as it lives.
class N7_EXPORT CDynLinkLibrary {
 public:
  explicit CDynLinkLibrary(AFX_EXTENSION_MODULE& state);
  virtual ~CDynLinkLibrary();
  CDynLinkLibrary(const CDynLinkLibrary&) = delete;
  CDynLinkLibrary& operator=(const CDynLinkLibrary&) = delete;

  HMODULE m_hModule;
  HMODULE m_hResource;
};

// The application object, as far as resources go: the module its resources come from (the main
// program unless the application sets another).
class N7_EXPORT CWinApp {
 public:
  CWinApp();
  virtual ~CWinApp();
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;

  HINSTANCE m_hInstance;
};

// The first resource module of the search that has string `id`; null when none has it.
N7_EXPORT HINSTANCE AfxFindStringResourceHandle(UINT id);

// String `id` from the search into `buffer` of `size` characters, cut to fit with a terminator;
// its length, or 0 (an empty buffer) when no module has it.
N7_EXPORT int AfxLoadString(UINT id, LPWSTR buffer, UINT size = 256);

// NOLINTEND(readability-identifier-naming)
