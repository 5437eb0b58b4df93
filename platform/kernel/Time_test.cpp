#include "n7utility/platform/kernel/Time.h"

#include <gtest/gtest.h>
#include <time.h>

#include <vector>

#include "n7utility/platform/kernel/Calendar_internal.h"
#include "n7utility/platform/kernel/ClockFixture_internal.h"

namespace n7platform {
namespace {

using internal::CivilFromDays;
using internal::DayOfWeek;
using internal::DaysFromCivil;

int DaysInMonth(std::int64_t year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

// The fields of `st` in their order: year, month, day of week, day, hour, minute, second and
// millisecond.
std::vector<WORD> Fields(const SYSTEMTIME& st) {
  return {st.wYear, st.wMonth,  st.wDayOfWeek, st.wDay,
          st.wHour, st.wMinute, st.wSecond,    st.wMilliseconds};
}

TEST(CalendarTest, DayCountsAndDatesConvertBothWays) {
  EXPECT_EQ(DaysFromCivil(1601, 1, 1), 0);
  EXPECT_EQ(DaysFromCivil(1970, 1, 1), internal::kDaysFrom1601To1970);
  EXPECT_EQ(DayOfWeek(0), 1);                            // Monday
  EXPECT_EQ(DayOfWeek(DaysFromCivil(2024, 2, 29)), 4);   // Thursday
  EXPECT_EQ(DayOfWeek(DaysFromCivil(1600, 12, 31)), 0);  // Sunday, before the epoch

  // Every day of four centuries follows its predecessor, through leap and century years.
  internal::CivilDate previous = CivilFromDays(-1);
  EXPECT_EQ(previous.year, 1600);
  for (std::int64_t days = 0; days < DaysFromCivil(2401, 1, 1); ++days) {
    const internal::CivilDate date = CivilFromDays(days);
    ASSERT_EQ(DaysFromCivil(date.year, date.month, date.day), days);
    const bool same_year = date.year == previous.year;
    const bool next_day = same_year && date.month == previous.month && date.day == previous.day + 1;
    const bool next_month =
        date.day == 1 && previous.day == DaysInMonth(previous.year, previous.month) &&
        ((same_year && date.month == previous.month + 1) ||
         (date.year == previous.year + 1 && date.month == 1 && previous.month == 12));
    ASSERT_TRUE(next_day || next_month) << date.year << "-" << date.month << "-" << date.day;
    previous = date;
  }
  EXPECT_EQ(DaysFromCivil(2100, 3, 1) - DaysFromCivil(2100, 2, 28), 1);
  EXPECT_EQ(DaysFromCivil(2000, 3, 1) - DaysFromCivil(2000, 2, 28), 2);
}

TEST(TimeTest, SystemTimeComesFromTheClock) {
  EXPECT_EQ(ManualClock::SystemTimeOf(1970, 1, 1, 0, 0, 0), 116'444'736'000'000'000);
  ManualClock clock(ManualClock::SystemTimeOf(2024, 2, 29, 23, 59, 58));
  ScopedClock installed(clock);
  clock.Advance(1234);

  SYSTEMTIME st{};
  GetSystemTime(&st);
  EXPECT_EQ(Fields(st), (std::vector<WORD>{2024, 2, 4, 29, 23, 59, 59, 234}));  // a Thursday

  FILETIME ft{};
  GetSystemTimeAsFileTime(&ft);
  const std::int64_t expected = ManualClock::SystemTimeOf(2024, 2, 29, 23, 59, 59) + 2'340'000;
  EXPECT_EQ((std::int64_t{ft.dwHighDateTime} << 32) | ft.dwLowDateTime, expected);

  clock.Advance(766);
  GetSystemTime(&st);
  EXPECT_EQ(Fields(st), (std::vector<WORD>{2024, 3, 5, 1, 0, 0, 0, 0}));
}

TEST(TimeTest, LocalTimeAppliesTheOffset) {
  ManualClock clock(ManualClock::SystemTimeOf(2024, 3, 1, 2, 0, 0));
  ScopedClock installed(clock);
  SYSTEMTIME st{};
  const std::vector<WORD> utc = {2024, 3, 5, 1, 2, 0, 0, 0};
  GetLocalTime(&st);
  EXPECT_EQ(Fields(st), utc);

  clock.SetLocalOffset(-5 * 3600LL);
  GetLocalTime(&st);
  EXPECT_EQ(Fields(st), (std::vector<WORD>{2024, 2, 4, 29, 21, 0, 0, 0}));

  clock.SetLocalOffset(22 * 3600LL + 30LL * 60);
  GetLocalTime(&st);
  EXPECT_EQ(Fields(st), (std::vector<WORD>{2024, 3, 6, 2, 0, 30, 0, 0}));

  GetSystemTime(&st);  // UTC is unaffected
  EXPECT_EQ(Fields(st), utc);
}

TEST(TimeTest, TickCountWrapsButTickCount64DoesNot) {
  ManualClock clock(0);
  ScopedClock installed(clock);
  EXPECT_EQ(GetTickCount64(), 0u);
  clock.Advance((std::uint64_t{1} << 32) + 5);
  EXPECT_EQ(GetTickCount(), 5u);
  EXPECT_EQ(GetTickCount64(), (std::uint64_t{1} << 32) + 5);
}

TEST(RealClockTest, SystemTimeIsTheRealtimeClockSince1601) {
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_REALTIME, &before);
  const std::int64_t now = RealClock().SystemTime();
  clock_gettime(CLOCK_REALTIME, &after);
  const std::int64_t seconds = now / internal::kTicksPerSecond - internal::kSecondsFrom1601To1970;
  EXPECT_GE(seconds, before.tv_sec);
  EXPECT_LE(seconds, after.tv_sec);
}

}  // namespace
}  // namespace n7platform
