#include "platform/ManualClock.h"

#include <algorithm>
#include <cassert>

#include "platform/Calendar_internal.h"
#include "platform/KernelObjects_internal.h"

namespace n7platform {
namespace {

using internal::KernelGuard;
using internal::KernelLock;

// Runs `read` under the kernel lock: the state of a manual clock is guarded by it, and the clock
// is read both by waits, which hold it already, and by the time functions, which do not.
template <typename Read>
auto UnderKernelLock(Read read) {
  if (KernelLock().HeldByThisThread()) return read();
  KernelGuard guard;
  return read();
}

}  // namespace

ManualClock::ManualClock(std::int64_t system_time) : system_time_(system_time) {}

ManualClock::~ManualClock() {
  internal::ForgetClock(this);
  assert(UnderKernelLock([this] { return sleepers_.empty(); }));
}

std::int64_t ManualClock::SystemTimeOf(int year, int month, int day, int hour, int minute,
                                       int second) {
  const std::int64_t days = internal::DaysFromCivil(year, month, day);
  const std::int64_t seconds = days * internal::kSecondsPerDay + std::int64_t{hour} * 3600 +
                               std::int64_t{minute} * 60 + second;
  return seconds * internal::kTicksPerSecond;
}

std::int64_t ManualClock::SystemTime() {
  return UnderKernelLock([this] { return system_time_; });
}

std::int64_t ManualClock::LocalOffsetSeconds(std::int64_t /*utc_seconds*/) {
  return UnderKernelLock([this] { return local_offset_; });
}

std::uint64_t ManualClock::TickCount() {
  return UnderKernelLock([this] { return tick_; });
}

// Only Advance moves the time, and it wakes every sleeper, so the deadline needs no timer here.
void ManualClock::Sleep(Sleeper& sleeper, std::unique_lock<std::mutex>& kernel_lock,
                        std::uint64_t /*deadline*/) {
  sleepers_.push_back(&sleeper);
  sleepers_changed_.notify_all();
  if (!sleeper.woken) sleeper.cv.wait(kernel_lock);
  sleepers_.erase(std::find(sleepers_.begin(), sleepers_.end(), &sleeper));
}

void ManualClock::Advance(std::uint64_t milliseconds) {
  KernelGuard guard;
  tick_ += milliseconds;
  system_time_ += static_cast<std::int64_t>(milliseconds) * internal::kTicksPerMillisecond;
  for (Sleeper* sleeper : sleepers_) {
    sleeper->woken = true;
    sleeper->cv.notify_all();
  }
}

void ManualClock::SetLocalOffset(std::int64_t seconds) {
  KernelGuard guard;
  local_offset_ = seconds;
}

void ManualClock::AwaitSleepers(std::size_t count) {
  KernelGuard guard;
  sleepers_changed_.wait(guard.lock(), [&] {
    const auto settled = std::count_if(sleepers_.begin(), sleepers_.end(),
                                       [](const Sleeper* sleeper) { return !sleeper->woken; });
    return static_cast<std::size_t>(settled) >= count;
  });
}

}  // namespace n7platform
