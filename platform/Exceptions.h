// The framework's exception classes. They are thrown by pointer, and the catcher releases the
// object it caught:
//
//   try { ... } catch (CResourceException* e) { ...; delete e; }
#pragma once

#include "platform/export.h"
#include "platform/windows_types.h"

// Base of the framework's exceptions.
class N7_EXPORT CException {
 public:
  CException();
  // `auto_delete` FALSE marks an object that is not on the heap and must not be deleted.
  explicit CException(BOOL auto_delete);
  virtual ~CException();
  CException(const CException&) = delete;
  CException& operator=(const CException&) = delete;

 protected:
  BOOL m_bAutoDelete;
};

// A system resource (memory, a kernel object, ...) could not be obtained.
class N7_EXPORT CResourceException : public CException {
 public:
  CResourceException();
  ~CResourceException() override;
};

// Throws a new CResourceException by pointer.
[[noreturn]] N7_EXPORT void AfxThrowResourceException();
