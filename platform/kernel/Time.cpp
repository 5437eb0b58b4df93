#include "n7utility/platform/kernel/Time.h"

#include "n7utility/platform/kernel/Calendar_internal.h"
#include "n7utility/platform/kernel/Clock.h"

namespace {

using n7platform::internal::kTicksPerMillisecond;
using n7platform::internal::kTicksPerSecond;

// Splits a system time (100-ns units since 1601) into calendar fields.
SYSTEMTIME ToSystemTime(std::int64_t ticks) {
  namespace internal = n7platform::internal;
  constexpr std::int64_t kMillisecondsPerDay = internal::kSecondsPerDay * 1000;
  const std::int64_t milliseconds = internal::FloorDiv(ticks, kTicksPerMillisecond);
  const std::int64_t days = internal::FloorDiv(milliseconds, kMillisecondsPerDay);
  const std::int64_t of_day = milliseconds - days * kMillisecondsPerDay;
  const internal::CivilDate date = internal::CivilFromDays(days);
  SYSTEMTIME result{};
  result.wYear = static_cast<WORD>(date.year);
  result.wMonth = static_cast<WORD>(date.month);
  result.wDayOfWeek = static_cast<WORD>(internal::DayOfWeek(days));
  result.wDay = static_cast<WORD>(date.day);
  result.wHour = static_cast<WORD>(of_day / 3'600'000);
  result.wMinute = static_cast<WORD>(of_day / 60'000 % 60);
  result.wSecond = static_cast<WORD>(of_day / 1000 % 60);
  result.wMilliseconds = static_cast<WORD>(of_day % 1000);
  return result;
}

}  // namespace

void GetSystemTimeAsFileTime(FILETIME* file_time) {
  const auto ticks = static_cast<std::uint64_t>(n7platform::GetClock().SystemTime());
  file_time->dwLowDateTime = static_cast<DWORD>(ticks);
  file_time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
}

void GetSystemTime(SYSTEMTIME* system_time) {
  *system_time = ToSystemTime(n7platform::GetClock().SystemTime());
}

void GetLocalTime(SYSTEMTIME* local_time) {
  n7platform::Clock& clock = n7platform::GetClock();
  const std::int64_t utc = clock.SystemTime();
  const std::int64_t offset =
      clock.LocalOffsetSeconds(n7platform::internal::FloorDiv(utc, kTicksPerSecond));
  *local_time = ToSystemTime(utc + offset * kTicksPerSecond);
}

DWORD GetTickCount() { return static_cast<DWORD>(n7platform::GetClock().TickCount()); }

ULONGLONG GetTickCount64() { return n7platform::GetClock().TickCount(); }
