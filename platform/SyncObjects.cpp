#include "platform/SyncObjects.h"

#include "platform/KernelObjects.h"

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
