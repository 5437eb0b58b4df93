#include "n7utility/Utility/Date.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <random>
#include <string>

#include "n7utility/Utility/DateReference_test.h"
#include "n7utility/core/heap_counter_test.h"
#include "n7utility/platform/kernel/ClockFixture_internal.h"
#include "n7utility/platform/kernel/ManualClock.h"

namespace {

constexpr wchar_t kUs4[] = L"MM/DD/YYYY";
constexpr wchar_t kUs2[] = L"MM/DD/YY";

std::wstring Text(CDate& date) { return static_cast<const wchar_t*>(date); }

CDate Ymd(int year, int month, int day) { return {month, day, year, kUs4, nullptr}; }

// Month, day and year as one value, so that one check covers the three.
using Fields = std::array<int, 3>;
Fields Mdy(const CDate& date) { return {date.Month(), date.Day(), date.Year()}; }

struct KnownDay {
  long julian;
  int year, month, day;
  int weekday;
};

TEST(DateDayNumber, KnownDaysBothWays) {
  const KnownDay days[] = {
      {2451544, 2000, 1, 1, 7},    // a Saturday
      {2299159, 1582, 10, 4, 5},   // last Julian-calendar day, a Thursday
      {2299160, 1582, 10, 15, 6},  // first Gregorian-calendar day, a Friday
      {1721422, -1, 12, 31, 6},    // 31 December 1 BC ...
      {1721423, 1, 1, 1, 7},       // ... and the next day
      {2457447, 2016, 2, 29, 2},
  };
  for (const KnownDay& known : days) {
    SCOPED_TRACE(known.julian);
    EXPECT_EQ(Ymd(known.year, known.month, known.day).Julian(), known.julian);
    const CDate by_number(known.julian, kUs4, nullptr);
    EXPECT_EQ(Mdy(by_number), (Fields{known.month, known.day, known.year}));
    EXPECT_EQ(by_number.NDOW(), known.weekday);
  }
}

// Impossible fields are kept as given (their day numbers are checked against the reference below)
// and shown as the invalid-date text.
TEST(DateDayNumber, ImpossibleFieldsAreKeptAndShownAsInvalid) {
  EXPECT_EQ(Ymd(0, 6, 1).Year(), 0);
  CDate thirteenth_month = Ymd(2017, 13, 1);
  EXPECT_EQ(Mdy(thirteenth_month), (Fields{13, 1, 2017}));
  EXPECT_EQ(Text(thirteenth_month), L"Invalid Date");
}

TEST(DateDayNumber, ExtremesStayInRange) {
  CDate date(LONG_MAX, kUs4, nullptr);
  date += LONG_MAX;
  date -= LONG_MIN;
  EXPECT_EQ(date.Julian(), INT32_MAX);
  date.Set(LONG_MIN);
  date.AddWeeks(INT_MIN);
  EXPECT_EQ(date.Julian(), INT32_MIN);
  EXPECT_GE(date.NDOW(), 1);
  EXPECT_LE(date.NDOW(), 7);
  date.Set(12, 31, INT_MAX);
  date.AddYears(INT_MAX);
  date.AddMonths(INT_MAX);
  EXPECT_EQ(date.Year(), INT_MAX);
  date.SetMonth(INT_MIN);
  date.AddMonths(INT_MIN);
  EXPECT_GE(date.Month(), 1);
  EXPECT_LE(date.Month(), 12);
  date.SetMonth(INT_MAX);
  date.EOM();  // no month length: day 0
  EXPECT_EQ(Text(date), L"Invalid Date");
}

// The conversions checked against the floating-point reference: every day of the four-digit
// years (both calendars, both sides of year 1), the whole of the first and last 400-year cycles
// of the 32-bit day range, and a day in every 997 between, which meets every day of the cycle.
// Mismatches are counted rather than asserted one by one, which keeps the loops fast.
class DateConversions : public testing::Test {
 protected:
  // Day number to fields, and those fields back to a day number, for the days from `first` to
  // `last` by `step`. From year 1 on the fields must make a valid date; before it, the classic
  // formulas' truncation toward zero gives fields such as 29 February of a common year.
  void CheckDays(std::int64_t first, std::int64_t last, std::int64_t step = 1) {
    for (std::int64_t julian = first; julian <= last; julian += step) {
      date_.Set(static_cast<long>(julian));
      const date_reference::Fields fields = date_reference::FieldsOf(static_cast<int>(julian));
      const bool invalid = fields.year > 0 && !date_.isValid();
      if (Mdy(date_) != Fields{fields.month, fields.day, fields.year} || invalid) Mismatch(julian);
      CheckFields(fields.month, fields.day, fields.year);
    }
  }

  void CheckFields(int month, int day, int year) {
    date_.Set(month, day, year);
    if (date_.Julian() != date_reference::DayNumber(month, day, year)) {
      Mismatch(month, day, year);
    }
  }

  void Mismatch(std::int64_t julian) {
    if (mismatches_++ == 0) ADD_FAILURE() << "first mismatch: day number " << julian;
  }
  void Mismatch(int month, int day, int year) {
    if (mismatches_++ == 0)
      ADD_FAILURE() << "first mismatch: " << month << "/" << day << "/" << year;
  }

  CDate date_{0L, kUs4, nullptr};
  long mismatches_ = 0;
};

TEST_F(DateConversions, EveryDayOfFourDigitYearsBothWays) {
  CheckDays(date_reference::DayNumber(1, 1, -9999), date_reference::DayNumber(12, 31, 9999));
  EXPECT_EQ(mismatches_, 0);
}

TEST_F(DateConversions, AcrossTheWholeDayRangeBothWays) {
  constexpr std::int64_t kCycle = 146097;  // days of 400 Gregorian years
  CheckDays(INT32_MIN, INT32_MIN + kCycle);
  CheckDays(INT32_MAX - kCycle, INT32_MAX);
  CheckDays(INT32_MIN, INT32_MAX, 997);
  EXPECT_EQ(mismatches_, 0);
}

TEST_F(DateConversions, ImpossibleFieldsAroundTheCalendarSwitchAndYearOne) {
  for (int year = -1700; year <= 2100; ++year) {
    for (int month = -1; month <= 14; ++month) {
      for (int day = -1; day <= 33; ++day) CheckFields(month, day, year);
    }
  }
  EXPECT_EQ(mismatches_, 0);
}

// Gregorian dates take a shorter route up to the year 5,000,000: both sides of that year, with
// days that overflow their month by far.
TEST_F(DateConversions, FieldsAroundTheEndOfTheGregorianRoute) {
  for (int year = 4'999'990; year <= 5'000'010; ++year) {
    for (int month = -1; month <= 14; ++month) {
      for (const int day : {INT_MIN, -1, 0, 1, 29, 31, 32, 1'000'000, INT_MAX}) {
        CheckFields(month, day, year);
      }
    }
  }
  EXPECT_EQ(mismatches_, 0);
}

TEST_F(DateConversions, AnyFieldsAtAll) {
  const std::array<int, 16> edges = {INT_MIN, INT_MIN + 1, -10001, -10000, -9999, -13,
                                     -1,      0,           1,      2,      3,     12,
                                     13,      9999,        19999,  INT_MAX};
  for (const int month : edges) {
    for (const int day : edges) {
      for (const int year : edges) CheckFields(month, day, year);
    }
  }
  std::mt19937 random(20240601);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same draws every run
  std::uniform_int_distribution<int> any(INT_MIN, INT_MAX);
  for (int i = 0; i < 1000000; ++i) CheckFields(any(random), any(random), any(random));
  EXPECT_EQ(mismatches_, 0);
}

// Dates are made per value in bulk (one per row read, one per field shown), so making one from
// text or from fields, with formats of the usual lengths, must not go to the heap.
TEST(DateConstruction, FromTextOrFieldsTakesNoHeap) {
  if (!n7testing::CountsAllocations()) GTEST_SKIP() << "the sanitizer owns operator new";
  const std::size_t before = n7testing::AllocationsOnThisThread();
  {
    const CDate by_fields(3, 15, 2017, L"dd.mm.yyyy", nullptr);
    const CDate by_text(L"15.03.2017", L"DD.MM.YYYY", L"YYYY-MM-DD");
    const CDate by_name(L"mar 15 2017", L"MON DD YYYY", nullptr);
    const CDate by_number(2457827L, kUs4, nullptr);
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is measured
    const CDate copy(by_text);
    EXPECT_EQ(by_fields.Julian(), by_text.Julian());
    EXPECT_EQ(by_name.Julian(), copy.Julian());
  }
  EXPECT_EQ(n7testing::AllocationsOnThisThread() - before, 0U);
}

TEST(DateCalendar, Questions) {
  EXPECT_TRUE(Ymd(2000, 1, 1).isLeapYear());
  EXPECT_FALSE(Ymd(1900, 1, 1).isLeapYear());
  EXPECT_TRUE(Ymd(1500, 1, 1).isLeapYear());  // Julian calendar: every fourth year
  EXPECT_EQ(Ymd(2016, 2, 1).DaysInMonth(), 29);
  EXPECT_EQ(Ymd(2016, 12, 31).DOY(), 366);
  EXPECT_EQ(CDate(3, 1, 2016, kUs2, nullptr).DOY(), 61);  // 1 January not taken as 2-digit
  EXPECT_EQ(Ymd(2017, 1, 6).WOY(), 1);
  EXPECT_EQ(Ymd(2017, 1, 7).WOY(), 2);
  // 1 March 2017 was a Wednesday, so Saturday the 4th closes the first week.
  EXPECT_EQ(Ymd(2017, 3, 15).FDOM(), 4);
  EXPECT_EQ(Ymd(2017, 3, 4).WOM(), 1);
  EXPECT_EQ(Ymd(2017, 3, 5).WOM(), 2);
  EXPECT_EQ(Ymd(2017, 3, 15).WOM(), 3);

  EXPECT_STREQ(Ymd(2000, 1, 1).CDOW(), L"Saturday");
  const wchar_t* german[] = {L"So", L"Mo", L"Di", L"Mi", L"Do", L"Fr", L"Sa"};
  const wchar_t* english[] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                              L"Thursday", L"Friday", L"Saturday"};
  CDate::SetDaysOfWeek(german);
  EXPECT_STREQ(Ymd(2000, 1, 2).CDOW(), L"So");
  CDate::SetDaysOfWeek(english);
}

TEST(DateArithmetic, DaysAndWeeks) {
  CDate date = Ymd(2016, 2, 28);
  EXPECT_EQ(Mdy(date++), (Fields{2, 29, 2016}));  // postfix returns the changed date too
  date.AddWeeks(-1);
  EXPECT_EQ(Mdy(date), (Fields{2, 22, 2016}));
  const CDate later = date + 10;
  EXPECT_EQ(Mdy(later), (Fields{3, 3, 2016}));
  EXPECT_EQ(later - 10 == date, 1);
  EXPECT_EQ(later <= date, 0);
}

TEST(DateArithmetic, MonthsClampTheDayYearsDoNot) {
  CDate date = Ymd(2016, 1, 31);
  date.AddMonths(1);
  EXPECT_EQ(Mdy(date), (Fields{2, 29, 2016}));
  date = Ymd(2017, 3, 31);
  date.AddMonths(-1);
  EXPECT_EQ(Mdy(date), (Fields{2, 28, 2017}));
  date = Ymd(2017, 1, 15);
  date.AddMonths(-13);
  EXPECT_EQ(Mdy(date), (Fields{12, 15, 2015}));
  date.AddMonths(25);
  EXPECT_EQ(date.Julian(), Ymd(2018, 1, 15).Julian());

  date = Ymd(2016, 2, 29);
  date.AddYears(1);
  EXPECT_EQ(Mdy(date), (Fields{2, 29, 2017}));
  EXPECT_EQ(date.Julian(), Ymd(2017, 3, 1).Julian());
  EXPECT_EQ(Text(date), L"Invalid Date");
}

TEST(DateSetters, TwoDigitYearsGoToTheNearestCentury) {
  CDate date(1, 1, 2000, kUs2, nullptr);
  date.SetYear(-5);  // negative years too
  EXPECT_EQ(date.Year(), 1995);
}

struct ParseCase {
  const wchar_t* format;
  const wchar_t* text;
  int month, day, year;
  bool valid;
};

TEST(DateParsing, TextsByInputFormat) {
  const ParseCase cases[] = {
      {kUs2, L"03/15/17", 3, 15, 2017, true},
      {kUs4, L"03/15/17", 3, 15, 17, true},
      {kUs2, L"03/15/50", 3, 15, 1950, true},
      {kUs2, L"03/15/49", 3, 15, 2049, true},
      {L"dd.mm.yyyy", L"15.3.2017", 3, 15, 2017, true},
      {L"YYYY-MM-DD", L"2017-03-15", 3, 15, 2017, true},
      {L"YYYY-DD-MM", L"2017-15-03", 3, 15, 2017, true},
      {L"DD YYYY MM", L"15 2017 03", 3, 15, 2017, true},
      {L"YYYY DD-MM", L"2017 15-03", 3, 15, 2017, true},
      {L"MM YYYY DD", L"03 2017 15", 3, 15, 2017, true},
      {kUs4, L"3 - 15 , 2017 AD", 3, 15, 2017, true},  // any non-digits separate
      {kUs4, L" 3/15/2017", 0, 3, 15, false},          // the first run is the empty one
      {kUs2, L"3/15", 3, 0, 2000, false},              // the last run ends the text
      {kUs4, L"20170315", 0, 0, 0, false},             // a lone run takes no field
      {kUs4, L"", 0, 0, 0, false},
      {kUs4, L"no digits at all", 0, 0, 0, false},
      {L"MON DD YYYY", L"Mar 15 2017", 3, 15, 2017, true},
      {L"MON DD YYYY", L"mAR 15 2017", 3, 15, 2017, true},
      {L"MON DD YYYY", L"Mrz 15 2017", -1, 15, 2017, false},
      {L"DD-MON-YYYY", L"15-Mar-2017", 3, 15, 0, true},  // "2017" ends the text
      {L"DD-MON-YYYY", L"1", -1, 0, 0, false},           // name read past the end
  };
  for (const ParseCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "format " << c.format << " text '" << c.text << "'");
    CDate date(c.text, c.format, nullptr);
    EXPECT_EQ(Mdy(date), (Fields{c.month, c.day, c.year}));
    EXPECT_EQ(Text(date) == L"Invalid Date", !c.valid);
  }
}

TEST(DateParsing, MalformedTextNeverBreaksTheDate) {
  const std::wstring long_run(5000, L'9');
  const std::wstring texts[] = {
      long_run + L"/" + long_run + L"/" + long_run, L"12/31/" + long_run, std::wstring(5000, L'/'),
      L"\u00e9\u4e00/\U0001F600/\u0663\u0664",      L"-1/-1/-1",
  };
  for (const std::wstring& text : texts) {
    for (const wchar_t* format : {kUs2, kUs4, L"MON DD YYYY", L"", L"X"}) {
      CDate date(text.c_str(), format, nullptr);
      const std::wstring shown = Text(date);
      EXPECT_EQ(shown == L"Invalid Date", !date.isValid());
      date.AddMonths(1);
      date.AddYears(-1);
      (void)date.DOY();
      (void)date.WOM();
    }
  }
  CDate huge_year((L"12/31/" + long_run).c_str(), kUs4, nullptr);
  EXPECT_EQ(huge_year.Year(), INT_MAX);
  EXPECT_EQ(Text(huge_year), L"12/31/" + std::to_wstring(INT_MAX));
}

TEST(DateParsing, NullTextZeroesTheFieldsAndKeepsTheDayNumber) {
  CDate date = Ymd(2017, 3, 15);
  const long julian = date.Julian();
  date = static_cast<const wchar_t*>(nullptr);
  EXPECT_EQ(Mdy(date), (Fields{0, 0, 0}));
  EXPECT_EQ(date.Julian(), julian);
  EXPECT_STREQ(CDate(nullptr, kUs4, nullptr).CDOW(), L"Tuesday");  // day number 0
}

TEST(DateToday, TodayComesFromTheLibraryClock) {
  n7platform::ManualClock clock(n7platform::ManualClock::SystemTimeOf(2025, 3, 15, 12, 0, 0));
  const n7platform::ScopedClock installed(clock);
  for (const wchar_t* text : {L"TODAY", L"today", L"Today"}) {
    EXPECT_EQ(Mdy(CDate(text, kUs2, nullptr)), (Fields{3, 15, 2025}));
  }
  const CDate now;
  EXPECT_EQ(now.Julian(), Ymd(2025, 3, 15).Julian());
  EXPECT_EQ(CDate(L"TODAYX", kUs2, nullptr).isValid(), false);
}

TEST(DateFormatting, OutputFormats) {
  CDate date(3, 5, 2017, kUs4, L"DD.MM.YY");
  EXPECT_EQ(Text(date), L"05.03.17");
  EXPECT_EQ(Text(date), L"05.03.17");  // formatting leaves the format as it was
  date.SetYear(100);
  EXPECT_EQ(Text(date), L"05.03.00");
  date.SetYear(1999);
  EXPECT_EQ(Text(date), L"05.03.99");
  date.SetYear(-44);
  EXPECT_EQ(Text(date), L"05.03.44");
  date.SetOutFormat(L"yyyy-mm-dd");
  EXPECT_EQ(date.GetOutFormat(), L"YYYY-MM-DD");
  EXPECT_EQ(Text(date), L"0044-03-05");
  date.SetOutFormat(L"MON DD");  // a field without a position is left out
  EXPECT_EQ(Text(date), L"MON 05");
}

// Formats longer than a date holds in itself, and changes between those and short ones.
TEST(DateFormatting, LongFormatsAsShortOnes) {
  CDate date(L"15/03/2017", L"day dd of month mm of year yyyy",
             L"the year YYYY, the month MM, the day DD");
  EXPECT_EQ(Text(date), L"THE YEAR 2017, THE MONTH 03, THE DAY 15");
  CDate copy(date);
  copy.SetInFormat(kUs4);
  EXPECT_EQ(copy.GetInFormat(), kUs4);
  EXPECT_EQ(Text(copy), L"THE YEAR 2017, THE MONTH 03, THE DAY 15");
  copy = date;
  EXPECT_EQ(copy.GetInFormat(), L"DAY DD OF MONTH MM OF YEAR YYYY");
  copy.SetOutFormat(L"yyyy");
  EXPECT_EQ(Text(copy), L"2017");
}

// Parsed formats are remembered by their text: a new text in the same buffer is a new format,
// and the same text means different things as an input and as an output format.
TEST(DateFormatting, FormatsAreKnownByTheirText) {
  std::wstring format = L"MM/DD/YYYY";
  const CDate us(L"03/04/2017", format.c_str(), format.c_str());
  format.replace(0, 5, L"DD/MM");
  CDate european(L"03/04/2017", format.c_str(), format.c_str());
  EXPECT_EQ(Mdy(us), (Fields{3, 4, 2017}));
  EXPECT_EQ(Mdy(european), (Fields{4, 3, 2017}));
  EXPECT_EQ(Text(european), L"03/04/2017");

  constexpr wchar_t kNamed[] = L"MON DD YYYY";
  CDate out_first(3, 15, 2017, kUs4, kNamed);
  EXPECT_EQ(Text(out_first), L"MON 15 2017");
  const CDate in_then(L"Mar 15 2017", kNamed, kNamed);
  EXPECT_EQ(Mdy(in_then), (Fields{3, 15, 2017}));
  CDate out_then(3, 15, 2017, kUs4, kNamed);
  EXPECT_EQ(Text(out_then), L"MON 15 2017");
}

TEST(DateFormatting, FormatsAreNormalised) {
  CDate date(1, 2, 2003, L"", nullptr);
  EXPECT_EQ(date.GetInFormat(), kUs4);
  EXPECT_EQ(date.GetOutFormat(), kUs4);
  CDate same_out(1, 2, 2003, L"dd/mm/yyyy", nullptr);
  EXPECT_EQ(same_out.GetOutFormat(), L"DD/MM/YYYY");
  EXPECT_EQ(Text(same_out), L"02/01/2003");

  CDate::SetInvalidDate(L"--");
  EXPECT_EQ(Text(date = L"junk"), L"--");
  CDate::SetInvalidDate(L"Invalid Date");
}

}  // namespace
