// Conversions between day counts since 1601-01-01 and proleptic Gregorian calendar dates, and the
// units of the system time (100-nanosecond intervals since 1601-01-01 00:00:00 UTC).
#pragma once

#include <cstdint>

namespace n7platform::internal {

inline constexpr std::int64_t kTicksPerMillisecond = 10'000;
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
inline constexpr std::int64_t kSecondsPerDay = 86'400;
// Days from 1601-01-01 to 1970-01-01.
inline constexpr std::int64_t kDaysFrom1601To1970 = 134'774;
inline constexpr std::int64_t kSecondsFrom1601To1970 = kDaysFrom1601To1970 * kSecondsPerDay;

struct CivilDate {
  std::int64_t year;
  int month;  // 1..12
  int day;    // 1..31
};

// Floor division, so that times before an epoch fall on the day before it.
constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  return a / b - ((a % b != 0 && (a % b < 0) != (b < 0)) ? 1 : 0);
}

// Days since 1601-01-01 of a date (month 1..12, day 1..31). The computation counts in 400-year
// eras starting on March 1st, so that the leap day is the last day of its year.
constexpr std::int64_t DaysFromCivil(std::int64_t year, int month, int day) {
  const std::int64_t y = month <= 2 ? year - 1 : year;
  const std::int64_t era = FloorDiv(y, 400);
  const std::int64_t year_of_era = y - era * 400;  // [0, 399]
  const std::int64_t day_of_year = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;  // [0, 146096]
  return era * 146'097 + day_of_era - 719'468 + kDaysFrom1601To1970;
}

// The date `days` days after 1601-01-01.
constexpr CivilDate CivilFromDays(std::int64_t days) {
  const std::int64_t z = days - kDaysFrom1601To1970 + 719'468;
  const std::int64_t era = FloorDiv(z, 146'097);
  const std::int64_t day_of_era = z - era * 146'097;  // [0, 146096]
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);  // [0, 365]
  const std::int64_t mp = (5 * day_of_year + 2) / 153;                         // March = 0
  const int day = static_cast<int>(day_of_year - (153 * mp + 2) / 5 + 1);
  const int month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  const std::int64_t year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
  return {year, month, day};
}

// 0 = Sunday. 1601-01-01 was a Monday.
constexpr int DayOfWeek(std::int64_t days) {
  return static_cast<int>(days - FloorDiv(days + 1, 7) * 7 + 1);
}

}  // namespace n7platform::internal
