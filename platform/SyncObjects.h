// The framework's synchronisation objects over the platform layer's kernel objects.
#pragma once

#include <mutex>

#include "platform/export.h"
#include "platform/thread_annotations.h"
#include "platform/windows_types.h"

// Base of the framework's synchronisation objects. m_hObject is the kernel object, or null for a
// critical section, which lives in user space.
class N7_EXPORT CSyncObject {
 public:
  explicit CSyncObject(LPCWSTR name);
  virtual ~CSyncObject();
  CSyncObject(const CSyncObject&) = delete;
  CSyncObject& operator=(const CSyncObject&) = delete;

  operator HANDLE() const { return m_hObject; }  // NOLINT(google-explicit-constructor)

  virtual BOOL Lock(DWORD timeout = INFINITE);
  virtual BOOL Unlock() = 0;

  HANDLE m_hObject = nullptr;
};

// A re-entrant lock held by one thread at a time; the owner may take it again and must release it
// as often as it took it. Lock() never fails.
class N7_EXPORT CAPABILITY("mutex") CCriticalSection : public CSyncObject {
 public:
  CCriticalSection();
  ~CCriticalSection() override;

  BOOL Lock() ACQUIRE();
  BOOL Lock(DWORD timeout) override ACQUIRE();
  BOOL Unlock() override RELEASE();

 private:
  std::recursive_mutex m_sect;
};

namespace n7platform {

// Holds a CCriticalSection for a scope.
class SCOPED_CAPABILITY CriticalSectionLock {
 public:
  explicit CriticalSectionLock(CCriticalSection& section) ACQUIRE(section) : section_(section) {
    section_.Lock();
  }
  ~CriticalSectionLock() RELEASE() { section_.Unlock(); }
  CriticalSectionLock(const CriticalSectionLock&) = delete;
  CriticalSectionLock& operator=(const CriticalSectionLock&) = delete;

 private:
  CCriticalSection& section_;
};

}  // namespace n7platform
