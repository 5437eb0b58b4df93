// A clock that moves only when told to, for tests of anything that waits or reads the time.
//
// Typical use: install it, start work that waits, call AwaitSleepers(n) to know the n waiting
// threads have settled, then Advance() and AwaitSleepers(n) again before checking what ran.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/kernel/Clock.h"

namespace n7platform {

class N7_EXPORT ManualClock final : public Clock {
 public:
  // Starts at `system_time` (100-ns units since 1601, UTC) with tick count 0 and local time equal
  // to UTC.
  explicit ManualClock(std::int64_t system_time);
  ~ManualClock() override;
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  // A system time for a UTC calendar date and time of day.
  static std::int64_t SystemTimeOf(int year, int month, int day, int hour, int minute, int second);

  std::int64_t SystemTime() override;
  std::int64_t LocalOffsetSeconds(std::int64_t utc_seconds) override;
  std::uint64_t TickCount() override;
  void Sleep(Sleeper& sleeper, std::uint64_t deadline) override;

  // Moves system time and tick count forward and wakes every sleeper so it re-checks.
  void Advance(std::uint64_t milliseconds);
  // Sets the local offset from UTC in seconds.
  void SetLocalOffset(std::int64_t seconds);
  // Blocks until at least `count` threads sleep on this clock with nothing pending to wake them:
  // they have consumed every signal and every Advance before this call.
  void AwaitSleepers(std::size_t count);

 private:
  // The clock's own lock: only code that runs on a manual clock pays for it.
  std::mutex mutex_;
  std::int64_t system_time_;  // guarded by mutex_, like everything below
  std::int64_t local_offset_ = 0;
  std::uint64_t tick_ = 0;
  std::vector<Sleeper*> sleepers_;
  std::condition_variable sleepers_changed_;
};

}  // namespace n7platform
