// CResourceMgr: one object through which a host module (a program or a library) loads its
// resources: strings, optionally from a localised language resource module chosen by language;
// messages formatted from string resources; accelerators, bitmaps, cursors, dialog templates,
// icons and menus from the module itself.
//
// Language resource modules: for a module file D/Name.ext (ext: dll, exe or ocx, in any case), the
// module of a language is D/res/NameRes.<code>.dll, <code> from the manager's table of 144
// languages ("de-DE" for 0x0407, "de" for 0x0007, ...). A string asked for in a language comes
// from that language's module, else from the module of its primary language, else from the host
// module. A language module once loaded stays loaded for the life of the process.
//
// Failures: a string that cannot be found comes back as a bracketed English placeholder (or
// empty, when asked), never as an exception. The other loads return null and record the
// system's text for the failure for the calling thread, which GetLastError gives back. When the
// system has no text for the error, the recorded text is empty; when formatting a message fails,
// FormatString gives the placeholder.
//
// Handles: the loads return the platform layer's handles, which point at the resource's bytes in
// the module (platform/system/Resources.h); there is nothing to destroy.
//
// Thread safety: any thread may use a manager; each thread sees only its own error text.
#pragma once

#include <cstdarg>
#include <unordered_map>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/ModuleState.h"
#include "n7utility/platform/framework/SyncObjects.h"
#include "n7utility/platform/system/Resources.h"

class N7_EXPORT CResourceMgr {
 public:
  // Follows the caller's instance handle variable, read at every use; it must outlive the manager.
  explicit CResourceMgr(HINSTANCE& instance);
  // Follows the application object's instance handle.
  explicit CResourceMgr(CWinApp& application);
  virtual ~CResourceMgr();
  CResourceMgr(const CResourceMgr&) = delete;
  CResourceMgr& operator=(const CResourceMgr&) = delete;

  // String `id`, in `language` when it is not 0. A missing string gives the placeholder
  // "[English Only: Error: Unable to Load String resource 'ID'. System Error: 'TEXT']" (TEXT: this
  // thread's last recorded error text), or an empty string when `no_placeholder` is not 0.
  CString LoadStringW(UINT id, int no_placeholder = 0, WORD language = 0);

  // String `id` with its inserts (%1, %2!d!, ... as FormatMessageW takes them; every argument
  // pointer-sized: wide strings as const wchar_t*, numbers as DWORD_PTR) filled from the
  // arguments; the placeholder when the string is missing or empty.
  CString FormatString(UINT id, ...);
  CString FormatString(UINT id, va_list& arguments);

  // The error text last recorded for the calling thread; empty when none.
  CString GetLastError();

  HACCEL LoadAcceleratorsW(LPCWSTR name);
  HACCEL LoadAcceleratorsW(UINT id);
  HBITMAP LoadBitmapW(LPCWSTR name);
  HBITMAP LoadBitmapW(UINT id);
  HBITMAP LoadBitmapEx(LPCWSTR name, UINT flags);
  HBITMAP LoadBitmapEx(UINT id, UINT flags);
  HCURSOR LoadCursorW(LPCWSTR name);
  HCURSOR LoadCursorW(UINT id);
  // The dialog template's bytes, locked in the module.
  LPVOID LoadDialog(LPCWSTR name);
  LPVOID LoadDialog(UINT id);
  HICON LoadIconW(LPCWSTR name);
  HICON LoadIconW(UINT id);
  HMENU LoadMenuW(LPCWSTR name);
  HMENU LoadMenuW(UINT id);

 private:
  // 1 and the formatted text when string `id` is there and not empty; 0 and an empty text when not.
  int BaseFormatString(UINT id, CString& text, va_list& arguments);
  // Records the system's text for the calling thread's last error code.
  void SetLastError();
  // `handle`, recording the error text first when it is null.
  template <typename Handle>
  Handle Checked(Handle handle);
  CString Placeholder(UINT id);

  CCriticalSection m_lock;
  HINSTANCE* m_instance;  // the caller's variable, never copied
  std::unordered_map<DWORD, CString> m_errors GUARDED_BY(m_lock);  // by thread id
};
