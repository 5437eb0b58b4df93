#include "n7utility/platform/framework/SyncObjects.h"

#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/kernel/KernelObjects.h"

IMPLEMENT_DYNAMIC(CSyncObject, CObject)

CSyncObject::CSyncObject(LPCWSTR /*name*/) {}

CSyncObject::~CSyncObject() {
  if (m_hObject != nullptr) CloseHandle(m_hObject);
}

BOOL CSyncObject::Lock(DWORD timeout) {
  return WaitForSingleObject(m_hObject, timeout) == WAIT_OBJECT_0 ? TRUE : FALSE;
}

CCriticalSection::CCriticalSection() : CSyncObject(nullptr) {}

CCriticalSection::~CCriticalSection() = default;

// The analysis cannot see that m_sect is this capability.
BOOL CCriticalSection::Lock() NO_THREAD_SAFETY_ANALYSIS {
  m_sect.lock();
  return TRUE;
}

// Like the framework's, a critical section waits as long as it takes, whatever the timeout.
BOOL CCriticalSection::Lock(DWORD /*timeout*/) NO_THREAD_SAFETY_ANALYSIS {
  m_sect.lock();
  return TRUE;
}

BOOL CCriticalSection::Unlock() NO_THREAD_SAFETY_ANALYSIS {
  m_sect.unlock();
  return TRUE;
}

namespace {

// `handle`, or a CResourceException when the kernel object could not be created.
HANDLE Created(HANDLE handle) {
  if (handle == nullptr) AfxThrowResourceException();
  return handle;
}

}  // namespace

CEvent::CEvent(BOOL initially_own, BOOL manual_reset, LPCWSTR name, LPSECURITY_ATTRIBUTES security)
    : CSyncObject(name) {
  m_hObject = Created(CreateEventW(security, manual_reset, initially_own, name));
}

CEvent::~CEvent() = default;

BOOL CEvent::SetEvent() { return ::SetEvent(m_hObject); }

BOOL CEvent::PulseEvent() { return ::PulseEvent(m_hObject); }

BOOL CEvent::ResetEvent() { return ::ResetEvent(m_hObject); }

BOOL CEvent::Unlock() { return TRUE; }

CMutex::CMutex(BOOL initially_own, LPCWSTR name, LPSECURITY_ATTRIBUTES security)
    : CSyncObject(name) {
  m_hObject = Created(CreateMutexW(security, initially_own, name));
}

CMutex::~CMutex() = default;

BOOL CMutex::Unlock() { return ReleaseMutex(m_hObject); }

CSemaphore::CSemaphore(LONG initial_count, LONG maximum_count, LPCWSTR name,
                       LPSECURITY_ATTRIBUTES security)
    : CSyncObject(name) {
  m_hObject = Created(CreateSemaphoreW(security, initial_count, maximum_count, name));
}

CSemaphore::~CSemaphore() = default;

BOOL CSemaphore::Unlock() { return Unlock(1, nullptr); }

BOOL CSemaphore::Unlock(LONG count, LONG* previous_count) {
  return ReleaseSemaphore(m_hObject, count, previous_count);
}

CSingleLock::CSingleLock(CSyncObject* object, BOOL initial_lock) : m_pObject(object) {
  if (initial_lock != FALSE) Lock();
}

CSingleLock::~CSingleLock() { Unlock(); }

BOOL CSingleLock::Lock(DWORD timeout) {
  if (m_bAcquired == FALSE && m_pObject != nullptr) m_bAcquired = m_pObject->Lock(timeout);
  return m_bAcquired;
}

BOOL CSingleLock::Unlock() {
  if (m_bAcquired != FALSE) m_bAcquired = m_pObject->Unlock() != FALSE ? FALSE : TRUE;
  return m_bAcquired == FALSE ? TRUE : FALSE;
}

BOOL CSingleLock::IsLocked() const { return m_bAcquired; }
