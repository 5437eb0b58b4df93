#include "n7utility/platform/kernel/Clock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/Calendar_internal.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform {
namespace {

class SystemClock final : public Clock {
 public:
  SystemClock() { tzset(); }

  std::int64_t SystemTime() override {
    const timespec now = Now(CLOCK_REALTIME);
    return (now.tv_sec + internal::kSecondsFrom1601To1970) * internal::kTicksPerSecond +
           now.tv_nsec / 100;
  }

  std::int64_t LocalOffsetSeconds(std::int64_t utc_seconds) override {
    const time_t unix_time = static_cast<time_t>(utc_seconds - internal::kSecondsFrom1601To1970);
    tm local{};
    if (localtime_r(&unix_time, &local) == nullptr) return 0;
    return local.tm_gmtoff;
  }

  std::uint64_t TickCount() override {
    const timespec now = Now(CLOCK_MONOTONIC);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec / 1'000'000);
  }

  // The futex timeout is measured on CLOCK_MONOTONIC, the clock of TickCount, so a relative wait
  // of the remaining ticks ends no earlier than the deadline. No lock is taken: the real clock's
  // waits cost only the futex.
  void Sleep(Sleeper& sleeper, std::uint64_t deadline) override {
    if (deadline == kNoDeadline) {
      ParkSleeper(sleeper, kNoDeadline);
      return;
    }
    const std::uint64_t now = TickCount();
    if (now >= deadline) return;
    // The caller re-checks after every return, so a long wait may be cut into shorter ones.
    constexpr std::uint64_t kLongestSleep = 24ull * 60 * 60 * 1000;
    ParkSleeper(sleeper, std::min(deadline - now, kLongestSleep));
  }

 private:
  static timespec Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
  }
};

std::atomic<Clock*> installed_clock{nullptr};

long Futex(std::atomic<std::uint32_t>& word, int operation, std::uint32_t value,
           const timespec* timeout) {
  return syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), operation | FUTEX_PRIVATE_FLAG,
                 value, timeout, nullptr, 0);
}

}  // namespace

void ParkSleeper(Sleeper& sleeper, std::uint64_t timeout_ms) {
  std::uint32_t expected = Sleeper::kArmed;
  if (!sleeper.state.compare_exchange_strong(expected, Sleeper::kParked,
                                             std::memory_order_acq_rel) &&
      expected != Sleeper::kParked) {
    return;  // woken already
  }
  timespec timeout{};
  if (timeout_ms != kNoDeadline) {
    timeout.tv_sec = static_cast<time_t>(timeout_ms / 1000);
    timeout.tv_nsec = static_cast<long>(timeout_ms % 1000) * 1'000'000;
  }
  Futex(sleeper.state, FUTEX_WAIT, Sleeper::kParked,
        timeout_ms == kNoDeadline ? nullptr : &timeout);
}

bool MarkSleeperWoken(Sleeper& sleeper) {
  return sleeper.state.exchange(Sleeper::kWoken, std::memory_order_acq_rel) == Sleeper::kParked;
}

void UnparkSleeper(Sleeper& sleeper) { Futex(sleeper.state, FUTEX_WAKE, 1, nullptr); }

Clock& RealClock() {
  static NoDestructor<SystemClock> clock;
  return *clock;
}

Clock& GetClock() {
  Clock* clock = installed_clock.load(std::memory_order_acquire);
  return clock != nullptr ? *clock : RealClock();
}

Clock* SetClock(Clock* clock) {
  Clock* previous = installed_clock.exchange(clock, std::memory_order_acq_rel);
  return previous != nullptr ? previous : &RealClock();
}

namespace internal {

void ForgetClock(Clock* clock) {
  installed_clock.compare_exchange_strong(clock, nullptr, std::memory_order_acq_rel);
}

}  // namespace internal
}  // namespace n7platform
