#include "n7utility/platform/kernel/ManualClock.h"

#include <algorithm>
#include <cassert>

#include "n7utility/platform/kernel/Calendar_internal.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform {

ManualClock::ManualClock(std::int64_t system_time) : system_time_(system_time) {}

ManualClock::~ManualClock() {
  internal::ForgetClock(this);
  const std::lock_guard lock(mutex_);
  assert(sleepers_.empty());
}

std::int64_t ManualClock::SystemTimeOf(int year, int month, int day, int hour, int minute,
                                       int second) {
  const std::int64_t days = internal::DaysFromCivil(year, month, day);
  const std::int64_t seconds = days * internal::kSecondsPerDay + std::int64_t{hour} * 3600 +
                               std::int64_t{minute} * 60 + second;
  return seconds * internal::kTicksPerSecond;
}

std::int64_t ManualClock::SystemTime() {
  const std::lock_guard lock(mutex_);
  return system_time_;
}

std::int64_t ManualClock::LocalOffsetSeconds(std::int64_t /*utc_seconds*/) {
  const std::lock_guard lock(mutex_);
  return local_offset_;
}

std::uint64_t ManualClock::TickCount() {
  const std::lock_guard lock(mutex_);
  return tick_;
}

// Only Advance moves the time, and it wakes every sleeper, so the deadline needs no timer here.
// The deadline is checked under the clock's lock, so an Advance between the caller's own check
// and this registration is not missed.
void ManualClock::Sleep(Sleeper& sleeper, std::uint64_t deadline) {
  {
    const std::lock_guard lock(mutex_);
    if (tick_ >= deadline || sleeper.Woken()) return;
    sleepers_.push_back(&sleeper);
    sleepers_changed_.notify_all();
  }
  ParkSleeper(sleeper, kNoDeadline);
  const std::lock_guard lock(mutex_);
  sleepers_.erase(std::find(sleepers_.begin(), sleepers_.end(), &sleeper));
}

void ManualClock::Advance(std::uint64_t milliseconds) {
  const std::lock_guard lock(mutex_);
  tick_ += milliseconds;
  system_time_ += static_cast<std::int64_t>(milliseconds) * internal::kTicksPerMillisecond;
  // A sleeper stays registered until it has taken the lock again, so it is alive here.
  for (Sleeper* sleeper : sleepers_) {
    if (MarkSleeperWoken(*sleeper)) UnparkSleeper(*sleeper);
  }
}

void ManualClock::SetLocalOffset(std::int64_t seconds) {
  const std::lock_guard lock(mutex_);
  local_offset_ = seconds;
}

void ManualClock::AwaitSleepers(std::size_t count) {
  std::unique_lock lock(mutex_);
  sleepers_changed_.wait(lock, [&] {
    const auto settled = std::count_if(sleepers_.begin(), sleepers_.end(),
                                       [](const Sleeper* sleeper) { return !sleeper->Woken(); });
    return static_cast<std::size_t>(settled) >= count;
  });
}

}  // namespace n7platform
