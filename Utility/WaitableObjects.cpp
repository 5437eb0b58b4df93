#include "n7utility/Utility/WaitableObjects.h"

#include <algorithm>

#include "n7utility/core/safe_cast.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/Time.h"

using n7platform::CriticalSectionLock;

namespace {

// The time left of `left` milliseconds after `elapsed` more: it never grows, and a wake-up that
// comes after the time ran out leaves none.
DWORD TimeLeft(DWORD left, DWORD elapsed) { return elapsed >= left ? 0 : left - elapsed; }

}  // namespace

// The signal event is auto-reset and set, not pulsed: a signal wakes a thread blocked in the wait
// at that moment, and one posted while no thread is blocked (even between a waiter's check and
// its block) stays set until the next wait takes it, so no posted code is ever left unhandled.
// Codes queue in order and are all handled at that wake-up; a wake-up that finds the queue
// already drained just waits again. Changes to the objects need no wake-up, since every wait
// rebuilds its handle array.
CWaitableObjects::CWaitableObjects() : m_signalEvent(FALSE, FALSE) {}

CWaitableObjects::~CWaitableObjects() { Close(); }

bool CWaitableObjects::Create() {
  CriticalSectionLock lock(m_section);
  if (m_waiting) return false;
  if (!m_objects.empty()) Close();
  return true;
}

bool CWaitableObjects::Close() {
  CriticalSectionLock lock(m_section);
  while (!m_objects.empty()) {
    CSyncObject* object = m_objects.front();
    m_objects.erase(m_objects.begin());
    delete object;
  }
  return true;
}

bool CWaitableObjects::Add(CSyncObject* object) {
  CriticalSectionLock lock(m_section);
  if (object == nullptr || m_objects.size() >= kCapacity) return false;
  m_objects.push_back(object);
  if (m_waiting) Signal(kRebuildSignal);
  return true;
}

bool CWaitableObjects::Remove(CSyncObject* object) {
  CriticalSectionLock lock(m_section);
  const auto found = std::find(m_objects.begin(), m_objects.end(), object);
  if (found == m_objects.end()) return false;
  m_objects.erase(found);
  if (m_waiting) Signal(kRebuildSignal);
  return true;
}

unsigned long CWaitableObjects::WaitForObject(unsigned long milliseconds, CSyncObject** object) {
  SetWaiting(true);
  std::vector<HANDLE> handles;
  BuildWaitHandles(handles);
  DWORD left = milliseconds >= INFINITE ? INFINITE : static_cast<DWORD>(milliseconds);
  DWORD result = WAIT_FAILED;
  for (;;) {
    if (!IsWaiting()) return kStopped;
    const DWORD started = GetTickCount();
    result = WaitOnce(handles, left);
    if (left != INFINITE) left = TimeLeft(left, GetTickCount() - started);
    if (result != WAIT_OBJECT_0) break;
    ProcessSignals(handles);
  }
  const DWORD first_object = WAIT_OBJECT_0 + 1;
  if (result < first_object || result >= WAIT_OBJECT_0 + handles.size()) return result;
  const unsigned long index = result - first_object;
  if (object != nullptr) *object = GetObjectAt(index);
  return index;
}

// An object removed and deleted by another thread while this one was between two waits leaves a
// closed handle in the array; the rebuild posted with the removal is pending then, and the wait
// is retried with a fresh array rather than reported as failed.
DWORD CWaitableObjects::WaitOnce(std::vector<HANDLE>& handles, DWORD milliseconds) {
  const DWORD result = WaitForMultipleObjects(n7core::safe_cast<DWORD>(handles.size()),
                                              handles.data(), FALSE, milliseconds);
  if (result != WAIT_FAILED) return result;
  CriticalSectionLock lock(m_section);
  return m_pendingSignals.empty() ? WAIT_FAILED : WAIT_OBJECT_0;
}

void CWaitableObjects::Signal(unsigned long code) {
  CriticalSectionLock lock(m_section);
  m_pendingSignals.push_back(code);
  m_signalEvent.SetEvent();
}

void CWaitableObjects::Stop() { Signal(kStopSignal); }

CSyncObject* CWaitableObjects::GetObjectAt(unsigned long index) {
  CriticalSectionLock lock(m_section);
  return index < m_objects.size() ? m_objects[index] : nullptr;
}

CCriticalSection& CWaitableObjects::GetSyncObject() { return m_section; }

const CCriticalSection& CWaitableObjects::GetSyncObject() const { return m_section; }

void CWaitableObjects::OnHandleSignal(unsigned long /*code*/) {}

void CWaitableObjects::SetWaiting(bool waiting) {
  CriticalSectionLock lock(m_section);
  m_waiting = waiting;
}

bool CWaitableObjects::IsWaiting() {
  CriticalSectionLock lock(m_section);
  return m_waiting;
}

void CWaitableObjects::BuildWaitHandles(std::vector<HANDLE>& handles) {
  CriticalSectionLock lock(m_section);
  handles.clear();
  handles.reserve(m_objects.size() + 1);
  handles.push_back(m_signalEvent);
  for (CSyncObject* object : m_objects) handles.push_back(*object);
}

void CWaitableObjects::ProcessSignals(std::vector<HANDLE>& handles) {
  CriticalSectionLock lock(m_section);
  while (!m_pendingSignals.empty()) {
    const unsigned long code = m_pendingSignals.front();
    m_pendingSignals.pop_front();
    OnHandleSignal(code);
    if (code == kStopSignal) m_waiting = false;
    if (code == kRebuildSignal) BuildWaitHandles(handles);
  }
}
