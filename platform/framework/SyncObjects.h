// The framework's synchronisation objects over the platform layer's kernel objects.
//
// The kernel-object kinds (CEvent, CMutex, CSemaphore) create their object in the constructor and
// throw CResourceException* (platform/framework/Exceptions.h) when they cannot; the handle is
// closed by CSyncObject's destructor.
#pragma once

#include <mutex>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"

// Base of the framework's synchronisation objects. m_hObject is the kernel object, or null for a
// critical section, which lives in user space.
class N7_EXPORT CSyncObject : public CObject {
  DECLARE_DYNAMIC(CSyncObject)

 public:
  explicit CSyncObject(LPCWSTR name);
  ~CSyncObject() override;
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

// An event: auto-reset (one wait takes it) or manual-reset (stays set until reset).
// `initially_own` is the initial state: TRUE starts it signalled.
class N7_EXPORT CEvent : public CSyncObject {
 public:
  explicit CEvent(BOOL initially_own = FALSE, BOOL manual_reset = FALSE, LPCWSTR name = nullptr,
                  LPSECURITY_ATTRIBUTES security = nullptr);
  ~CEvent() override;

  BOOL SetEvent();
  BOOL PulseEvent();
  BOOL ResetEvent();
  BOOL Unlock() override;  // nothing to release: TRUE
};

// A recursive mutex owned by a thread; Unlock releases it once (FALSE for a non-owner).
class N7_EXPORT CMutex : public CSyncObject {
 public:
  explicit CMutex(BOOL initially_own = FALSE, LPCWSTR name = nullptr,
                  LPSECURITY_ATTRIBUTES security = nullptr);
  ~CMutex() override;

  BOOL Unlock() override;
};

// A counting semaphore; Lock takes one unit, Unlock gives units back.
class N7_EXPORT CSemaphore : public CSyncObject {
 public:
  explicit CSemaphore(LONG initial_count = 1, LONG maximum_count = 1, LPCWSTR name = nullptr,
                      LPSECURITY_ATTRIBUTES security = nullptr);
  ~CSemaphore() override;

  BOOL Unlock() override;  // gives one unit back
  BOOL Unlock(LONG count, LONG* previous_count = nullptr);
};

// Locks one synchronisation object for the lifetime of the CSingleLock (or between Lock and
// Unlock) and unlocks it on destruction if it is still locked.
class N7_EXPORT CSingleLock {
 public:
  explicit CSingleLock(CSyncObject* object, BOOL initial_lock = FALSE);
  ~CSingleLock();
  CSingleLock(const CSingleLock&) = delete;
  CSingleLock& operator=(const CSingleLock&) = delete;

  // TRUE when the object was locked within `timeout` milliseconds; locking a CSingleLock that is
  // already locked returns TRUE without locking again. FALSE for a null object.
  BOOL Lock(DWORD timeout = INFINITE);
  // TRUE when the object is not (or no longer) locked through this CSingleLock.
  BOOL Unlock();
  BOOL IsLocked() const;

 private:
  CSyncObject* m_pObject;
  BOOL m_bAcquired = FALSE;
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
