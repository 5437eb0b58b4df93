#include "platform/KernelObjects.h"

#include <algorithm>
#include <optional>
#include <span>
#include <vector>

#include "platform/KernelObjects_internal.h"
#include "platform/NoDestructor.h"
#include "platform/Thread.h"

namespace {
thread_local DWORD last_error = ERROR_SUCCESS;
}  // namespace

DWORD GetLastError() { return last_error; }
void SetLastError(DWORD error) { last_error = error; }

namespace n7platform::internal {

thread_local bool KernelMutex::held_ = false;

namespace {
// The guard through which this thread holds the kernel lock. A plain pointer, so that it is still
// usable from other thread-local destructors when the thread ends.
thread_local KernelGuard* t_current_guard = nullptr;
}  // namespace

KernelGuard::KernelGuard() : lock_(KernelLock().native()) {
  KernelMutex::held_ = true;
  t_current_guard = this;
}

KernelGuard::~KernelGuard() {
  t_current_guard = nullptr;
  KernelMutex::held_ = false;
  lock_.unlock();
  for (const auto& sleeper : wake_after_unlock_) sleeper->cv.notify_all();
}

void WakeAfterUnlock(std::shared_ptr<Sleeper> sleeper) {
  t_current_guard->wake_after_unlock_.push_back(std::move(sleeper));
}

KernelMutex& KernelLock() {
  static NoDestructor<KernelMutex> lock;
  return *lock;
}

// ---------------------------------------------------------------------------------------------
// Handle table

namespace {

// A handle is the tag bit, a 31-bit generation and a slot index. The tag bit makes it a
// non-canonical address, so it can never be mistaken for a pointer (and a pointer never for it);
// the generation changes each time a slot is freed, so a closed handle stays invalid after its
// slot is reused.
constexpr std::uint64_t kHandleTag = std::uint64_t{1} << 63;
constexpr std::uint32_t kGenerationMask = 0x7FFF'FFFFu;
// Roughly the per-process limit of the system the interface comes from.
constexpr std::uint32_t kMaxHandles = 1u << 24;

class HandleTable {
 public:
  HANDLE Insert(std::shared_ptr<KernelObject> object) {
    std::uint32_t index;
    if (!free_.empty()) {
      index = free_.back();
      free_.pop_back();
    } else if (slots_.size() < kMaxHandles) {
      index = static_cast<std::uint32_t>(slots_.size());
      slots_.push_back(Slot{});
    } else {
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      return nullptr;
    }
    slots_[index].object = std::move(object);
    return Encode(index, slots_[index].generation);
  }

  std::shared_ptr<KernelObject> Find(HANDLE handle) {
    Slot* slot = SlotOf(handle);
    return slot != nullptr ? slot->object : nullptr;
  }

  std::size_t LiveCount() const { return slots_.size() - free_.size(); }

  std::shared_ptr<KernelObject> Remove(HANDLE handle) {
    Slot* slot = SlotOf(handle);
    if (slot == nullptr) return nullptr;
    std::shared_ptr<KernelObject> object = std::move(slot->object);
    slot->object = nullptr;
    slot->generation =
        (slot->generation & kGenerationMask) == kGenerationMask ? 1 : slot->generation + 1;
    free_.push_back(static_cast<std::uint32_t>(slot - slots_.data()));
    return object;
  }

 private:
  struct Slot {
    std::shared_ptr<KernelObject> object;
    std::uint32_t generation = 1;
  };

  static HANDLE Encode(std::uint32_t index, std::uint32_t generation) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is a number, never dereferenced
    return reinterpret_cast<HANDLE>(kHandleTag | std::uint64_t{generation} << 32 | index);
  }

  Slot* SlotOf(HANDLE handle) {
    const auto value = reinterpret_cast<std::uintptr_t>(handle);
    if ((value & kHandleTag) == 0) return nullptr;
    const auto index = static_cast<std::uint32_t>(value);
    const auto generation = static_cast<std::uint32_t>(value >> 32) & kGenerationMask;
    if (index >= slots_.size()) return nullptr;
    Slot& slot = slots_[index];
    if (slot.generation != generation || slot.object == nullptr) return nullptr;
    return &slot;
  }

  std::vector<Slot> slots_;
  std::vector<std::uint32_t> free_;
};

HandleTable& Handles() REQUIRES(KernelLock()) {
  static NoDestructor<HandleTable> table;
  return *table;
}

}  // namespace

bool RefuseName(LPCWSTR name) {
  if (name == nullptr) return false;
  SetLastError(ERROR_NOT_SUPPORTED);
  return true;
}

HANDLE InsertHandle(std::shared_ptr<KernelObject> object) {
  return Handles().Insert(std::move(object));
}

std::shared_ptr<KernelObject> FindObject(HANDLE handle) {
  std::shared_ptr<KernelObject> object = Handles().Find(handle);
  if (object == nullptr) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

std::size_t LiveHandleCount() { return Handles().LiveCount(); }

std::shared_ptr<KernelObject> RemoveHandle(HANDLE handle) {
  std::shared_ptr<KernelObject> object = Handles().Remove(handle);
  if (object == nullptr) SetLastError(ERROR_INVALID_HANDLE);
  return object;
}

// ---------------------------------------------------------------------------------------------
// Wait engine

struct Waiter {
  // Shared with the thread that wakes it, which notifies after releasing the kernel lock.
  std::shared_ptr<Sleeper> sleeper = std::make_shared<Sleeper>();
  DWORD thread = 0;
  bool wait_all = false;
  std::span<const std::shared_ptr<KernelObject>> objects;
  // Set, with the objects taken, when the wait is satisfied: by the waiting thread itself or by
  // the thread that signalled an object.
  std::optional<DWORD> result;
};

namespace {

// Completes `waiter` if its objects allow it now. Nothing is taken unless the wait succeeds.
bool TrySatisfy(Waiter& waiter) REQUIRES(KernelLock()) {
  if (waiter.result) return true;
  const auto& objects = waiter.objects;
  const auto signalled = [&](const std::shared_ptr<KernelObject>& object) REQUIRES(KernelLock()) {
    return object->IsSignalledFor(waiter.thread);
  };
  if (waiter.wait_all) {
    if (!std::all_of(objects.begin(), objects.end(), signalled)) return false;
    std::optional<DWORD> abandoned;
    for (DWORD i = 0; i < objects.size(); ++i) {
      if (objects[i]->Acquire(waiter.thread) && !abandoned) abandoned = i;
    }
    waiter.result = abandoned ? WAIT_ABANDONED_0 + *abandoned : WAIT_OBJECT_0;
    return true;
  }
  const auto it = std::find_if(objects.begin(), objects.end(), signalled);
  if (it == objects.end()) return false;
  const auto index = static_cast<DWORD>(it - objects.begin());
  waiter.result = ((*it)->Acquire(waiter.thread) ? WAIT_ABANDONED_0 : WAIT_OBJECT_0) + index;
  return true;
}

// A wait for all that names one object twice could never take it twice.
bool HasDuplicates(std::span<const std::shared_ptr<KernelObject>> objects) {
  for (std::size_t i = 0; i < objects.size(); ++i) {
    if (std::find(objects.begin() + static_cast<std::ptrdiff_t>(i) + 1, objects.end(),
                  objects[i]) != objects.end()) {
      return true;
    }
  }
  return false;
}

}  // namespace

DWORD WaitForObjects(std::span<const std::shared_ptr<KernelObject>> objects, bool wait_all,
                     DWORD milliseconds, KernelGuard& guard) {
  Waiter waiter;
  waiter.thread = GetCurrentThreadId();
  waiter.wait_all = wait_all;
  waiter.objects = objects;
  if (TrySatisfy(waiter)) return *waiter.result;
  if (milliseconds == 0) return WAIT_TIMEOUT;

  // A thread already asleep keeps the clock it started on, whatever is installed meanwhile.
  Clock& clock = GetClock();
  const std::uint64_t deadline =
      milliseconds == INFINITE ? kNoDeadline : clock.TickCount() + milliseconds;
  for (const auto& object : objects) object->AddWaiter(&waiter);
  while (!TrySatisfy(waiter) && clock.TickCount() < deadline) {
    waiter.sleeper->woken = false;
    clock.Sleep(*waiter.sleeper, guard.lock(), deadline);
    KernelLock().AssertHeld();
  }
  for (const auto& object : objects) object->RemoveWaiter(&waiter);
  return waiter.result.value_or(WAIT_TIMEOUT);
}

void KernelObject::AddWaiter(Waiter* waiter) { waiters_.push_back(waiter); }

void KernelObject::RemoveWaiter(Waiter* waiter) {
  // A wait for any may name an object twice; each registration is removed once.
  waiters_.erase(std::find(waiters_.begin(), waiters_.end(), waiter));
}

void KernelObject::SatisfyWaiters() {
  for (Waiter* waiter : waiters_) {
    if (waiter->result || !IsSignalledFor(waiter->thread)) continue;
    if (TrySatisfy(*waiter)) {
      waiter->sleeper->woken = true;
      WakeAfterUnlock(waiter->sleeper);
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Events

namespace {

class Event final : public KernelObject {
 public:
  Event(bool manual_reset, bool signalled) : manual_reset_(manual_reset), signalled_(signalled) {}

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(KernelLock()) { return signalled_; }

  bool Acquire(DWORD /*thread*/) override REQUIRES(KernelLock()) {
    if (!manual_reset_) signalled_ = false;
    return false;
  }

  void Set() REQUIRES(KernelLock()) {
    signalled_ = true;
    SatisfyWaiters();
  }

  void Reset() REQUIRES(KernelLock()) { signalled_ = false; }

  // The waits completed while the event is briefly signalled are exactly those of the threads
  // waiting now: all of them for a manual-reset event, the first one for an auto-reset event,
  // whose wait resets it.
  void Pulse() REQUIRES(KernelLock()) {
    signalled_ = true;
    SatisfyWaiters();
    signalled_ = false;
  }

 private:
  const bool manual_reset_;
  bool signalled_ GUARDED_BY(KernelLock());
};

BOOL ApplyToEvent(HANDLE handle, void (Event::*operation)()) {
  KernelGuard guard;
  Event* event = FindObjectOf<Event>(handle);
  if (event == nullptr) return FALSE;
  (event->*operation)();
  return TRUE;
}

}  // namespace
}  // namespace n7platform::internal

using n7platform::internal::Event;
using n7platform::internal::KernelGuard;
using n7platform::internal::KernelObject;

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*security*/, BOOL manual_reset, BOOL initial_state,
                    LPCWSTR name) {
  if (n7platform::internal::RefuseName(name)) return nullptr;
  auto event = std::make_shared<Event>(manual_reset != FALSE, initial_state != FALSE);
  KernelGuard guard;
  return n7platform::internal::InsertHandle(std::move(event));
}

BOOL SetEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Set); }

BOOL ResetEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Reset); }

BOOL PulseEvent(HANDLE event) { return n7platform::internal::ApplyToEvent(event, &Event::Pulse); }

BOOL CloseHandle(HANDLE handle) {
  std::shared_ptr<KernelObject> object;  // destroyed after the lock is released
  KernelGuard guard;
  object = n7platform::internal::RemoveHandle(handle);
  return object != nullptr ? TRUE : FALSE;
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
  std::shared_ptr<KernelObject> closed;  // destroyed after the lock is released
  KernelGuard guard;
  std::shared_ptr<KernelObject> object = n7platform::internal::FindObject(source);
  if (object == nullptr) return FALSE;
  HANDLE duplicate = n7platform::internal::InsertHandle(object);
  if (duplicate == nullptr) return FALSE;
  if ((options & DUPLICATE_CLOSE_SOURCE) != 0) closed = n7platform::internal::RemoveHandle(source);
  *target = duplicate;
  return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  return WaitForMultipleObjects(1, &handle, FALSE, milliseconds);
}

DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                             DWORD milliseconds) {
  if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || handles == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  n7platform::internal::WatchThreadExit();
  // The wait holds its objects, so closing a handle meanwhile does not pull one from under it.
  std::shared_ptr<KernelObject> objects[MAXIMUM_WAIT_OBJECTS];
  KernelGuard guard;
  for (DWORD i = 0; i < count; ++i) {
    objects[i] = n7platform::internal::FindObject(handles[i]);
    if (objects[i] == nullptr) return WAIT_FAILED;
  }
  const std::span<const std::shared_ptr<KernelObject>> waited(objects, count);
  if (wait_all != FALSE && n7platform::internal::HasDuplicates(waited)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return n7platform::internal::WaitForObjects(waited, wait_all != FALSE, milliseconds, guard);
}
