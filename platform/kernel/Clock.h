// The library's one source of time.
//
// Everything in the library that reads the time or waits with a timeout goes through the installed
// Clock: the system time behind N7OS::CN7DateTime and GetSystemTimeAsFileTime, the local time
// behind GetLocalTime, the monotonic tick count behind GetTickCount, and every timed wait of the
// kernel objects. The default is the real clock; tests install a ManualClock so that hours of
// scheduling run in milliseconds.
#pragma once

#include <atomic>
#include <cstdint>

#include "n7utility/platform/base/Export.h"

namespace n7platform {

// The parking word of one thread blocked in a wait on kernel objects. The wait engine arms it
// before it looks at its objects; whoever changes what the thread waits for wakes it, and a clock
// only puts it to sleep until then. The word is a futex, so a waker that finds the thread still
// running (not parked) wakes it without a system call.
struct Sleeper {
  static constexpr std::uint32_t kArmed = 0;   // may park
  static constexpr std::uint32_t kWoken = 1;   // woken since last armed
  static constexpr std::uint32_t kParked = 2;  // blocked in the kernel

  std::atomic<std::uint32_t> state{kArmed};

  bool Woken() const { return state.load(std::memory_order_acquire) == kWoken; }
};

// Blocks the calling thread on `sleeper` until it is woken or `timeout_ms` milliseconds pass
// (kNoDeadline: no limit); it may also return early. For clocks.
N7_EXPORT void ParkSleeper(Sleeper& sleeper, std::uint64_t timeout_ms);

// Marks `sleeper` woken. True when its thread is parked in the kernel and must be unparked with
// UnparkSleeper; the caller keeps the sleeper alive until then.
N7_EXPORT bool MarkSleeperWoken(Sleeper& sleeper);
N7_EXPORT void UnparkSleeper(Sleeper& sleeper);

// A tick deadline that never comes.
inline constexpr std::uint64_t kNoDeadline = UINT64_MAX;

class N7_EXPORT Clock {
 public:
  virtual ~Clock() = default;

  // The system time in UTC: 100-nanosecond intervals since 1601-01-01 00:00:00.
  virtual std::int64_t SystemTime() = 0;

  // Seconds to add to a UTC time (whole seconds since 1601) to get the local wall-clock time.
  virtual std::int64_t LocalOffsetSeconds(std::int64_t utc_seconds) = 0;

  // Milliseconds on a monotonic clock with an arbitrary origin.
  virtual std::uint64_t TickCount() = 0;

  // Blocks the calling thread until `sleeper` is woken, until TickCount() reaches `deadline`, or
  // spuriously; the caller re-checks. Returns at once when the sleeper is already woken.
  virtual void Sleep(Sleeper& sleeper, std::uint64_t deadline) = 0;
};

// The installed clock: the real one unless a test installed another.
N7_EXPORT Clock& GetClock();

// Installs `clock` (null: the real clock) and returns the previous one. Install a clock before
// anything waits on it; a thread already asleep on the previous clock is not moved.
N7_EXPORT Clock* SetClock(Clock* clock);

// The real clock: CLOCK_REALTIME, the C library's time zone and CLOCK_MONOTONIC.
N7_EXPORT Clock& RealClock();

}  // namespace n7platform
