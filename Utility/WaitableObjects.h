// A set of synchronisation objects that one thread waits on while other threads add or remove
// objects, stop the wait, or post numeric signals to the waiting thread.
//
// The set owns its objects: Close (and Create, and the destructor) deletes them; Remove gives one
// back to the caller. It holds at most kCapacity (63) objects, so that a wait covers the set's
// own signal event and every object in one platform wait of at most 64 handles; WaitForObject
// reports any of them by its index, 0 to 62.
//
// Signal codes: 1 (Stop) ends the wait, which then returns kStopped; 2 (posted by Add and
// Remove while the set is waiting) makes the wait rebuild its handle array; every code,
// these two included, is handed to OnHandleSignal on the waiting thread, in the order posted,
// with the set's critical section held. An override may call the set's operations but must not
// wait for another thread that is about to use the set.
//
// The waiting flag is set when WaitForObject starts and cleared only when a stop is processed:
// after a wait that returned an object or timed out, Add and Remove still post code 2 and Create
// still refuses. One thread at a time may call WaitForObject; any number may add, remove and
// signal. Every operation holds the set's critical section while it works, never while it waits.
#pragma once

#include <deque>
#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/SyncObjects.h"

class N7_EXPORT CWaitableObjects {
 public:
  static constexpr unsigned long kCapacity = MAXIMUM_WAIT_OBJECTS - 1;
  static constexpr unsigned long kStopped = 0xFFFFFFFF;
  static constexpr unsigned long kStopSignal = 1;
  static constexpr unsigned long kRebuildSignal = 2;

  CWaitableObjects();
  virtual ~CWaitableObjects();
  CWaitableObjects(const CWaitableObjects&) = delete;
  CWaitableObjects& operator=(const CWaitableObjects&) = delete;

  // Deletes the objects (if any) unless a wait is in progress, in which case it returns false.
  bool Create();
  // Deletes every object; the pending signals stay.
  bool Close();
  // Takes ownership of `object`; false, changing nothing, when the set is full or `object` null.
  bool Add(CSyncObject* object);
  // Gives the first entry equal to `object` back to the caller; false when there is none.
  bool Remove(CSyncObject* object);

  // Waits up to `milliseconds` (INFINITE: no limit) for an object. Returns its index (and stores
  // it in `*object` when `object` is not null), kStopped when a stop was processed, or the
  // platform's result: WAIT_TIMEOUT, WAIT_FAILED, or WAIT_ABANDONED_0 + handle position (the
  // object's index + 1) for an abandoned mutex.
  unsigned long WaitForObject(unsigned long milliseconds, CSyncObject** object = nullptr);

  // Queues `code` and sets the signal event: a thread blocked in the wait at that moment wakes
  // and handles every queued code; with no thread blocked, the next wait wakes at once for it.
  void Signal(unsigned long code);
  void Stop();

  // The object at `index`, or null when there is none.
  CSyncObject* GetObjectAt(unsigned long index);

  // The set's critical section, for a client that makes several calls in one go.
  CCriticalSection& GetSyncObject() RETURN_CAPABILITY(m_section);
  const CCriticalSection& GetSyncObject() const RETURN_CAPABILITY(m_section);

 protected:
  // Receives each signal code on the waiting thread, with the critical section held.
  virtual void OnHandleSignal(unsigned long code);

 private:
  void SetWaiting(bool waiting);
  bool IsWaiting();
  void BuildWaitHandles(std::vector<HANDLE>& handles);
  void ProcessSignals(std::vector<HANDLE>& handles);
  // Waits on `handles` for any one of them; WAIT_OBJECT_0 is the signal event.
  DWORD WaitOnce(std::vector<HANDLE>& handles, DWORD milliseconds);

  CCriticalSection m_section;
  CEvent m_signalEvent;
  bool m_waiting GUARDED_BY(m_section) = false;
  std::deque<unsigned long> m_pendingSignals GUARDED_BY(m_section);
  std::vector<CSyncObject*> m_objects GUARDED_BY(m_section);
};
