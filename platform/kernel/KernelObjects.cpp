#include "n7utility/platform/kernel/KernelObjects.h"

#include <sched.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "n7utility/platform/base/HandleTable_internal.h"
#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform::internal {

void ObjectLock::WaitUntilFree() const {
  // Holders keep the lock for a few instructions, unless the system preempted them: spin a little,
  // then give the processor away so that a preempted holder can finish.
  for (int spin = 0; flag_.load(std::memory_order_relaxed); ++spin) {
    if (spin < 64) {
      __builtin_ia32_pause();
    } else {
      sched_yield();
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Handles of kernel objects (platform/base/HandleTable_internal.h)

namespace {

using KernelHandles = HandleTable<KernelObject>;
using Slot = KernelHandles::Slot;

KernelHandles& Handles() {
  static NoDestructor<KernelHandles> table(HandleKind::kKernelObject);
  return *table;
}

// The slots this thread used last, each kept pinned, so that a thread working on the same few
// handles finds them again with one load instead of two atomic read-modify-writes on the slot.
// The object of a handle closed meanwhile lives on until its entry is reused or the thread ends;
// nothing can reach it through the closed handle.
class PinCache {
 public:
  PinCache() = default;
  PinCache(const PinCache&) = delete;
  PinCache& operator=(const PinCache&) = delete;
  ~PinCache() {
    for (Entry& entry : entries_) {
      if (entry.slot != nullptr) Handles().Unpin(entry.slot);
    }
  }

  // The object of `handle`, valid until this thread's next lookup; null when the handle is not
  // open.
  KernelObject* Find(HANDLE handle) {
    Entry& entry = entries_[reinterpret_cast<std::uintptr_t>(handle) % kEntries];
    if (entry.handle == handle && entry.slot != nullptr) {
      if (KernelHandles::StillOpen(entry.slot, handle)) return entry.slot->object.get();
    }
    Slot* slot = Handles().Pin(handle);
    if (slot == nullptr) return nullptr;
    Slot* evicted = std::exchange(entry.slot, slot);
    entry.handle = handle;
    if (evicted != nullptr) Handles().Unpin(evicted);
    return slot->object.get();
  }

 private:
  static constexpr std::size_t kEntries = 8;
  struct Entry {
    HANDLE handle = nullptr;
    Slot* slot = nullptr;
  };
  Entry entries_[kEntries];
};

}  // namespace

ObjectRef& ObjectRef::operator=(ObjectRef&& other) noexcept {
  if (this != &other) {
    Reset();
    slot_ = std::exchange(other.slot_, nullptr);
    object_ = std::exchange(other.object_, nullptr);
  }
  return *this;
}

void ObjectRef::Reset() {
  if (slot_ != nullptr) Handles().Unpin(static_cast<Slot*>(slot_));
  slot_ = nullptr;
  object_ = nullptr;
}

bool RefuseName(LPCWSTR name) {
  if (name == nullptr) return false;
  SetLastError(ERROR_NOT_SUPPORTED);
  return true;
}

HANDLE InsertHandle(std::shared_ptr<KernelObject> object) {
  HANDLE handle = Handles().Insert(std::move(object));
  if (handle == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return handle;
}

ObjectRef FindObject(HANDLE handle) {
  Slot* slot = Handles().Pin(handle);
  if (slot == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return {};
  }
  return {slot, slot->object.get()};
}

ObjectRef FindObjectForCall(HANDLE handle) {
  thread_local PinCache cache;
  KernelObject* object = cache.Find(handle);
  if (object == nullptr) SetLastError(ERROR_INVALID_HANDLE);
  return {nullptr, object};
}

std::shared_ptr<KernelObject> ShareObject(HANDLE handle) {
  std::shared_ptr<KernelObject> object = Handles().Share(handle);
  if (object == nullptr) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

std::size_t LiveHandleCount() { return Handles().LiveCount(); }

bool RemoveHandle(HANDLE handle) {
  const bool closed = Handles().Remove(handle) != nullptr;
  if (!closed) SetLastError(ERROR_INVALID_HANDLE);
  return closed;
}

// ---------------------------------------------------------------------------------------------
// Wait engine (the protocol is described in docs/wait-engine.md)

struct Waiter {
  WaitingThread thread;
  bool wait_all = false;
  std::span<KernelObject* const> objects;  // in the caller's order: indices of results
  std::span<KernelObject* const> ordered;  // each object once, in lock order
  // kWaiting until the one thread that completes the wait sets kDone: by exchange under the lock
  // of one of the objects (a wait for any), or under the locks of all of them (a wait for all).
  std::atomic<std::uint32_t> state{kWaiting};
  DWORD result = WAIT_TIMEOUT;  // written with kDone, read by the waiter under all its locks
  // The waiting thread's sleeper, alive for the thread's life.
  const std::shared_ptr<Sleeper>* sleeper = nullptr;

  static constexpr std::uint32_t kWaiting = 0;
  static constexpr std::uint32_t kDone = 1;
};

namespace {

// Kept for the thread's life and shared with the wakers, which may still be unparking it when
// its wait has returned.
const std::shared_ptr<Sleeper>& ThisThreadsSleeper() {
  thread_local const std::shared_ptr<Sleeper> sleeper = std::make_shared<Sleeper>();
  return sleeper;
}

// Locks every object of a set in the one global order; the set is sorted by address.
void LockAll(std::span<KernelObject* const> ordered) NO_THREAD_SAFETY_ANALYSIS {
  for (KernelObject* object : ordered) object->lock().lock();
}

void UnlockAll(std::span<KernelObject* const> ordered) NO_THREAD_SAFETY_ANALYSIS {
  for (KernelObject* object : ordered) object->lock().unlock();
}

// The first index of `object` in the waiter's list.
DWORD IndexOf(const Waiter& waiter, const KernelObject* object) {
  return static_cast<DWORD>(std::find(waiter.objects.begin(), waiter.objects.end(), object) -
                            waiter.objects.begin());
}

// Takes every object of a wait for all (all locked and signalled) and sets its result.
void TakeAll(Waiter& waiter) NO_THREAD_SAFETY_ANALYSIS {
  std::optional<DWORD> abandoned;
  for (DWORD i = 0; i < waiter.objects.size(); ++i) {
    if (waiter.objects[i]->Acquire(waiter.thread) && !abandoned) abandoned = i;
  }
  waiter.result = abandoned ? WAIT_ABANDONED_0 + *abandoned : WAIT_OBJECT_0;
  waiter.state.store(Waiter::kDone, std::memory_order_release);
}

bool AllSignalled(const Waiter& waiter) NO_THREAD_SAFETY_ANALYSIS {
  for (const KernelObject* object : waiter.ordered) {
    if (!object->IsSignalledFor(waiter.thread.id)) return false;
  }
  return true;
}

// With every object of the wait locked by the caller: completes the wait if its objects allow
// it now. Nothing is taken unless the wait succeeds.
bool TrySatisfy(Waiter& waiter) NO_THREAD_SAFETY_ANALYSIS {
  if (waiter.state.load(std::memory_order_relaxed) == Waiter::kDone) return true;
  if (waiter.wait_all) {
    if (!AllSignalled(waiter)) return false;
    TakeAll(waiter);
    return true;
  }
  for (DWORD i = 0; i < waiter.objects.size(); ++i) {
    KernelObject* object = waiter.objects[i];
    if (!object->IsSignalledFor(waiter.thread.id)) continue;
    waiter.result = (object->Acquire(waiter.thread) ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + i;
    waiter.state.store(Waiter::kDone, std::memory_order_release);
    return true;
  }
  return false;
}

// Wakes the waiter's thread. Called with a lock of one of its objects held, so the waiter (which
// takes all of them before it returns) is alive; the sleeper outlives the call on its own.
void Wake(Waiter& waiter, std::vector<std::shared_ptr<Sleeper>>& unpark) {
  if (MarkSleeperWoken(**waiter.sleeper)) unpark.push_back(*waiter.sleeper);
}

// A signaller holding `held` found a wait for all that `held` may complete. Taking the other
// locks in address order could deadlock with a waiter holding some of them, so only try them:
// when all are free, complete the wait here; otherwise wake the waiter, which takes all its locks
// in order itself and checks again.
void OfferToWaitForAll(Waiter& waiter, const KernelObject* held,
                       std::vector<std::shared_ptr<Sleeper>>& unpark) NO_THREAD_SAFETY_ANALYSIS {
  std::size_t locked = 0;
  for (; locked < waiter.ordered.size(); ++locked) {
    KernelObject* object = waiter.ordered[locked];
    if (object != held && !object->lock().try_lock()) break;
  }
  const bool all_locked = locked == waiter.ordered.size();
  if (all_locked && AllSignalled(waiter)) {
    TakeAll(waiter);
    Wake(waiter, unpark);
  } else if (!all_locked) {
    Wake(waiter, unpark);
  }
  for (std::size_t i = 0; i < locked; ++i) {
    if (waiter.ordered[i] != held) waiter.ordered[i]->lock().unlock();
  }
}

std::vector<std::shared_ptr<Sleeper>>& PendingUnparks() {
  thread_local std::vector<std::shared_ptr<Sleeper>> pending;
  return pending;
}

// The waiter's locks are held on entry and released on return; it is registered on its objects.
DWORD Sleep(Waiter& waiter, DWORD milliseconds) NO_THREAD_SAFETY_ANALYSIS {
  Sleeper& sleeper = **waiter.sleeper;
  // A thread already asleep keeps the clock it started on, whatever is installed meanwhile.
  Clock& clock = GetClock();
  const std::uint64_t deadline =
      milliseconds == INFINITE ? kNoDeadline : clock.TickCount() + milliseconds;
  for (;;) {
    UnlockAll(waiter.ordered);
    // No spinning before the sleep: on a machine with few cores the spinner takes the processor
    // from the very thread that would wake it (measured with sync_bench and pool_bench).
    while (!sleeper.Woken() && clock.TickCount() < deadline) clock.Sleep(sleeper, deadline);
    // Armed again before the objects are looked at: a change after the look wakes it again.
    sleeper.state.store(Sleeper::kArmed, std::memory_order_seq_cst);
    LockAll(waiter.ordered);
    if (TrySatisfy(waiter) || clock.TickCount() >= deadline) break;
  }
  for (KernelObject* object : waiter.ordered) {
    object->RemoveWaiter(&waiter);
    object->OnWaiterLeft();
  }
  UnlockAll(waiter.ordered);
  UnparkPending();
  return waiter.result;
}

// A wait for all that names one object twice could never take it twice.
bool HasAdjacentDuplicates(std::span<KernelObject* const> sorted) {
  return std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end();
}

}  // namespace

DWORD WaitForObjects(std::span<KernelObject* const> objects, bool wait_all, DWORD milliseconds) {
  KernelObject* ordered[MAXIMUM_WAIT_OBJECTS];
  std::copy(objects.begin(), objects.end(), ordered);
  KernelObject** unique_end = ordered + objects.size();
  if (objects.size() > 1) {
    std::sort(ordered, unique_end);
    if (wait_all && HasAdjacentDuplicates({ordered, objects.size()})) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return WAIT_FAILED;
    }
    unique_end = std::unique(ordered, unique_end);
  }

  Waiter waiter;
  waiter.thread = ThisWaitingThread();
  waiter.wait_all = wait_all;
  waiter.objects = objects;
  waiter.ordered = {ordered, static_cast<std::size_t>(unique_end - ordered)};
  LockAll(waiter.ordered);
  if (TrySatisfy(waiter) || milliseconds == 0) {
    UnlockAll(waiter.ordered);
    return waiter.result;
  }
  waiter.sleeper = &ThisThreadsSleeper();
  (*waiter.sleeper)->state.store(Sleeper::kArmed, std::memory_order_relaxed);
  for (KernelObject* object : waiter.ordered) {
    object->lock().AssertHeld();
    object->AddWaiter(&waiter);
  }
  return Sleep(waiter, milliseconds);
}

void KernelObject::AddWaiter(Waiter* waiter) { waiters_.push_back(waiter); }

void KernelObject::RemoveWaiter(Waiter* waiter) {
  waiters_.erase(std::find(waiters_.begin(), waiters_.end(), waiter));
}

void KernelObject::SatisfyWaiters(Handover handover) {
  if (waiters_.empty()) return;
  std::vector<std::shared_ptr<Sleeper>>& unpark = PendingUnparks();
  bool woke_one = false;
  for (Waiter* waiter : waiters_) {
    if (waiter->state.load(std::memory_order_relaxed) == Waiter::kDone) continue;
    if (!IsSignalledFor(waiter->thread.id)) continue;
    if (waiter->wait_all) {
      OfferToWaitForAll(*waiter, this, unpark);
      continue;
    }
    if (handover == Handover::kWakeOldest) {
      // A woken wait that ends without the object hands the wake-up on (OnWaiterLeft).
      if (!std::exchange(woke_one, true)) Wake(*waiter, unpark);
      continue;
    }
    // Signallers of the waiter's other objects hold other locks and may race for it: the one
    // whose exchange wins completes the wait. The waiter reads the result once it holds this lock.
    std::uint32_t waiting = Waiter::kWaiting;
    if (!waiter->state.compare_exchange_strong(waiting, Waiter::kDone, std::memory_order_acq_rel)) {
      continue;
    }
    waiter->result =
        (Acquire(waiter->thread) ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + IndexOf(*waiter, this);
    Wake(*waiter, unpark);
  }
}

void UnparkPending() {
  std::vector<std::shared_ptr<Sleeper>>& unpark = PendingUnparks();
  for (const auto& sleeper : unpark) UnparkSleeper(*sleeper);
  unpark.clear();
}

// ---------------------------------------------------------------------------------------------
// Events

namespace {

class Event final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kEvent;

  Event(bool manual_reset, bool signalled)
      : KernelObject(kKind), manual_reset_(manual_reset), signalled_(signalled) {}

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(lock_) { return signalled_; }

  bool Acquire(const WaitingThread& /*thread*/) override REQUIRES(lock_) {
    if (!manual_reset_) signalled_ = false;
    return false;
  }

  void Set() REQUIRES(lock_) {
    signalled_ = true;
    SatisfyWaiters();
  }

  void Reset() REQUIRES(lock_) { signalled_ = false; }

  // The waits completed while the event is briefly signalled are exactly those of the threads
  // waiting now: all of them for a manual-reset event, the first one for an auto-reset event,
  // whose wait resets it.
  void Pulse() REQUIRES(lock_) {
    signalled_ = true;
    SatisfyWaiters();
    signalled_ = false;
  }

 private:
  const bool manual_reset_;
  bool signalled_ GUARDED_BY(lock_);
};

BOOL ApplyToEvent(HANDLE handle, void (Event::*operation)()) {
  ObjectRef ref;
  Event* event = FindObjectOf<Event>(handle, ref, FindObjectForCall);
  if (event == nullptr) return FALSE;
  {
    ObjectGuard guard(event->lock());
    (event->*operation)();
  }
  UnparkPending();
  return TRUE;
}

}  // namespace
}  // namespace n7platform::internal

using n7platform::internal::Event;
using n7platform::internal::KernelObject;
using n7platform::internal::ObjectRef;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*security*/, BOOL manual_reset, BOOL initial_state,
                    LPCWSTR name) {
  if (n7platform::internal::RefuseName(name)) return nullptr;
  auto event = std::make_shared<Event>(manual_reset != FALSE, initial_state != FALSE);
  return n7platform::internal::InsertHandle(std::move(event));
}

BOOL SetEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Set); }

BOOL ResetEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Reset); }

BOOL PulseEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Pulse); }

BOOL CloseHandle(HANDLE handle) {
  return n7platform::internal::RemoveHandle(handle) ? TRUE : FALSE;
}

HANDLE GetCurrentProcess() {
  // The value the system the interface comes from uses; it is no handle in the table.
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle value, never dereferenced
  return reinterpret_cast<HANDLE>(~std::uintptr_t{0});
}

BOOL DuplicateHandle(HANDLE source_process, HANDLE source, HANDLE target_process, HANDLE* target,
                     DWORD /*desired_access*/, BOOL /*inherit*/, DWORD options) {
  if (source_process != GetCurrentProcess() || target_process != GetCurrentProcess()) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  if (target == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  std::shared_ptr<KernelObject> object = n7platform::internal::ShareObject(source);
  if (object == nullptr) return FALSE;
  HANDLE duplicate = n7platform::internal::InsertHandle(std::move(object));
  if (duplicate == nullptr) return FALSE;
  if ((options & DUPLICATE_CLOSE_SOURCE) != 0) n7platform::internal::RemoveHandle(source);
  *target = duplicate;
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  const ObjectRef ref = n7platform::internal::FindObjectForCall(handle);
  if (!ref) return WAIT_FAILED;
  KernelObject* const object = ref.get();
  return n7platform::internal::WaitForObjects({&object, 1}, false, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                             DWORD milliseconds) {
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  // The wait holds its objects, so closing a handle meanwhile does not pull one from under it.
  ObjectRef refs[MAXIMUM_WAIT_OBJECTS];
  KernelObject* objects[MAXIMUM_WAIT_OBJECTS];
  for (DWORD i = 0; i < count; ++i) {
    refs[i] = n7platform::internal::FindObject(handles[i]);
    if (!refs[i]) return WAIT_FAILED;
    objects[i] = refs[i].get();
  }
  return n7platform::internal::WaitForObjects({objects, count}, wait_all != FALSE, milliseconds);
}
