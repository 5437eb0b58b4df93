#include "platform/Clock.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>

#include "platform/Calendar_internal.h"
#include "platform/KernelObjects_internal.h"
#include "platform/NoDestructor.h"

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

  // CLOCK_MONOTONIC is the clock of std::chrono::steady_clock, so a relative wait of the
  // remaining ticks ends no earlier than the deadline.
  void Sleep(Sleeper& sleeper, std::unique_lock<std::mutex>& kernel_lock,
             std::uint64_t deadline) override {
    if (deadline == kNoDeadline) {
      sleeper.cv.wait(kernel_lock);
      return;
    }
    const std::uint64_t now = TickCount();
    if (now >= deadline) return;
    // The caller re-checks after every return, so a long wait may be cut into shorter ones.
    constexpr std::uint64_t kLongestSleep = 24ull * 60 * 60 * 1000;
    const std::uint64_t remaining = std::min(deadline - now, kLongestSleep);
    sleeper.cv.wait_for(kernel_lock,
                        std::chrono::milliseconds(static_cast<std::int64_t>(remaining)));
  }

 private:
  static timespec Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
  }
};

std::atomic<Clock*> installed_clock{nullptr};

}  // namespace

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
