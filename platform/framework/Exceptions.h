// The framework's exception classes. They are thrown by pointer, and the catcher releases the
// object it caught with Delete, which frees heap objects and leaves alone those that are not
// auto-deleting (static or stack instances):
//
//   try { ... } catch (CException* e) { ...; e->Delete(); }
//
// The exceptions the platform throws itself are heap objects, so `delete e` works on them too.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/system/MessageBox.h"

// Base of the framework's exceptions.
class N7_EXPORT CException {
 public:
  CException();
  // `auto_delete` FALSE marks an object that is not on the heap and must not be deleted.
  explicit CException(BOOL auto_delete);
  virtual ~CException();
  CException(const CException&) = delete;
  CException& operator=(const CException&) = delete;

  // Frees the object if it is auto-deleting; otherwise does nothing.
  void Delete();

  // Copies the exception's text into `error` (at most `max_error` characters with the
  // terminator) and sets `*help_context` (when given) to its help context. Returns FALSE when
  // there is no text; the buffer then holds the empty string. The base has no text.
  virtual BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context = nullptr) const;
  // The same for callers that hold a non-const exception; by default asks the const form.
  virtual BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context = nullptr);

  // Shows the exception's text in the application message box with the style `type` and
  // returns the box's result. Without a text it shows "No error message is available.", or, when
  // `message_id` is given, "Error message <id>.": the host's string table is not within the
  // platform layer's reach.
  virtual int ReportError(UINT type = MB_OK, UINT message_id = 0);

 protected:
  BOOL m_bAutoDelete;
};

// A system resource (memory, a kernel object, ...) could not be obtained.
class N7_EXPORT CResourceException : public CException {
 public:
  CResourceException();
  ~CResourceException() override;
  using CException::GetErrorMessage;
  // "A required resource was unavailable."
  BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context = nullptr) const override;
};

// A function was given an argument it cannot work with.
class N7_EXPORT CInvalidArgException : public CException {
 public:
  CInvalidArgException();
  ~CInvalidArgException() override;
  using CException::GetErrorMessage;
  // "Encountered an improper argument."
  BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context = nullptr) const override;
};

// Throw a new auto-deleting exception of their kind by pointer.
[[noreturn]] N7_EXPORT void AfxThrowResourceException();
[[noreturn]] N7_EXPORT void AfxThrowInvalidArgException();

namespace n7platform {

// Copies `text` into a caller's message buffer the way the framework's GetErrorMessage does:
// at most `max_error` - 1 characters and a terminator, nothing when `max_error` is 0 or `error`
// null; sets `*help_context` to 0 when given.
N7_EXPORT void CopyErrorMessage(LPCWSTR text, LPWSTR error, UINT max_error, UINT* help_context);

}  // namespace n7platform
