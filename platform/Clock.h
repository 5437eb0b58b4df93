// The library's one source of time.
//
// Everything in the library that reads the time or waits with a timeout goes through the installed
// Clock: the system time behind N7OS::CN7DateTime and GetSystemTimeAsFileTime, the local time
// behind GetLocalTime, the monotonic tick count behind GetTickCount, and every timed wait of the
// kernel objects. The default is the real clock; tests install a ManualClock so that hours of
// scheduling run in milliseconds.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "platform/export.h"

namespace n7platform {

// One thread blocked in a wait on kernel objects. The wait engine owns it; a clock only puts it to
// sleep. `woken` is guarded by the kernel lock and set by whoever wakes the sleeper.
struct Sleeper {
  std::condition_variable cv;
  bool woken = false;
};

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

  // Blocks `sleeper` until it is woken, until TickCount() reaches `deadline`, or spuriously; the
  // caller re-checks. Called with the kernel lock held in `kernel_lock`, which is released while
  // the thread sleeps.
  virtual void Sleep(Sleeper& sleeper, std::unique_lock<std::mutex>& kernel_lock,
                     std::uint64_t deadline) = 0;
};

// The installed clock: the real one unless a test installed another.
N7_EXPORT Clock& GetClock();

// Installs `clock` (null: the real clock) and returns the previous one. Install a clock before
// anything waits on it; a thread already asleep on the previous clock is not moved.
N7_EXPORT Clock* SetClock(Clock* clock);

// The real clock: CLOCK_REALTIME, the C library's time zone and CLOCK_MONOTONIC.
N7_EXPORT Clock& RealClock();

}  // namespace n7platform
