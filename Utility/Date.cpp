// CDate: day-number arithmetic, format parsing, text parsing and formatting.
//
// The day-number conversions work in 64-bit integers with truncation toward zero at each step, so
// that every date maps to the same day number as it always has, including the irregular ones
// before year 1; only the stored results are narrowed to 32 bits. Dates of the Gregorian calendar,
// which are nearly all the dates anyone asks about, take a shorter route that gives the same
// results in 32-bit unsigned arithmetic.

#include "n7utility/Utility/Date.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <limits>
#include <string>
#include <string_view>

#include "n7utility/platform/kernel/Time.h"

namespace {

constexpr wchar_t kDefaultFormat[] = L"MM/DD/YYYY";
constexpr std::array<int, 12> kDaysInMonth = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// First day of the Gregorian calendar (15 October 1582) as yyyymmdd and as day number.
constexpr std::int64_t kGregorianStartYmd = 15821015;
constexpr std::int64_t kGregorianStartDay = 2299160;
// Moves the day count of the formula below onto the day numbers.
constexpr std::int64_t kDayNumberBase = 1720994;
// Julian day number of 1 January of year 1: earlier days take the other branch so that it and
// 31 December of 1 BC are consecutive.
constexpr std::int64_t kYearOneJd = 1721423;

// Day numbers outside this range are clamped to it, far beyond any real date.
constexpr std::int64_t kMaxDayShift = std::int64_t{1} << 33;

// The Gregorian route counts days from 1 March of year 0 (this day number), which puts the leap
// day at the end of its year and makes every 400 years exactly 146097 days. It takes the fields
// of whole Gregorian years up to a last one well inside the 32-bit day numbers.
constexpr std::int64_t kMarchOfYearZero = 1721119;
constexpr std::uint32_t kDaysPer400Years = 146097;
constexpr std::int64_t kGregorianFirstYear = 1583;
constexpr std::int64_t kGregorianLastYear = 5'000'000;

enum Field { kDay = 0, kMonth = 1, kYear = 2 };
using FieldOrder = std::array<Field, 3>;

// Field orders of input formats, by order number 1 to 6. Orders 1 to 5 are chosen when the
// fields' positions in the format rise in that order; order 6 takes every other case.
constexpr std::array<FieldOrder, 6> kFieldOrders = {{
    {kDay, kMonth, kYear},
    {kYear, kMonth, kDay},
    {kMonth, kDay, kYear},
    {kDay, kYear, kMonth},
    {kYear, kDay, kMonth},
    {kMonth, kYear, kDay},
}};
constexpr int kFallbackOrder = 6;

// What parsing a format finds: the positions of its "DD", "MM" and "YY" (-1 where missing) and
// whether the year has four digits. An input format without "MM" has its month at "MON", as a
// name, and gives the fields in an order, numbered as in kFieldOrders. Laid out and typed as a
// date holds them, so that they are copied in a few moves.
struct FormatFields {
  LONG month = -1;
  LONG day = -1;
  LONG year = -1;
  BOOL year4 = 0;
  BOOL month_name = 0;
  LONG order = kFallbackOrder;
  // Whether upper-casing left every character as it is without asking the locale, so that the
  // same text parses the same way whatever the locale is now or later.
  bool locale_free = true;
};

// Fields of a day number: they fit an int for every 32-bit day number.
struct CivilDate {
  int month;
  int day;
  int year;
};

// Day number of a proleptic Gregorian date from March of year 0 on. The day counts on from the
// first of the month, so day 0 and 31 February are as good as any.
std::int64_t GregorianDayNumberOf(std::uint32_t month, std::int64_t day, std::uint32_t year) {
  const bool early = month <= 2;  // January and February end the previous year
  const std::uint32_t y = early ? year - 1 : year;
  const std::uint32_t m = early ? month + 12 : month;
  const std::uint32_t century = y / 100;
  const std::uint32_t days_before_year = 365 * y + y / 4 - century + century / 4;
  // Month lengths from March run 31, 30, 31, 30, 31, ...: 30.59375 days a month, counted from
  // March (m = 3), meets the first of every month.
  const std::uint32_t days_before_month = (979 * m - 2919) / 32;
  return kMarchOfYearZero + days_before_year + days_before_month + day - 1;
}

// Day number of the fields as they are: an impossible date counts on from its month and day (13/1
// is January of the next year), and the year 0 is 1 BC. The calendar switch is decided on the
// fields too, so the ten dropped days of October 1582 count as Julian-calendar days.
//
// The classic formulas with 365.25 and 30.6001 days, written as exact fractions: C++ division
// truncates toward zero, as the formulas do at every step, on every 32-bit field. On a month of
// a Gregorian year they are the proleptic Gregorian count, which is quicker to reach directly.
// Negative days keep to the formulas: far enough below 0, a day of early 1583 falls back to the
// Julian calendar.
std::int64_t DayNumberOf(std::int64_t month, std::int64_t day, std::int64_t year) {
  if (month >= 1 && month <= 12 && year >= kGregorianFirstYear && year <= kGregorianLastYear &&
      day >= 0) {
    return GregorianDayNumberOf(static_cast<std::uint32_t>(month), day,
                                static_cast<std::uint32_t>(year));
  }
  std::int64_t y = year < 0 ? year + 1 : year;
  std::int64_t m = month;
  if (m <= 2) {  // January and February end the previous year, so leap days come last
    y -= 1;
    m += 12;
  }
  std::int64_t century_correction = 0;
  if (y * 10000 + m * 100 + day >= kGregorianStartYmd) {
    const std::int64_t century = y / 100;
    century_correction = 2 - century + century / 4;
  }
  return y * 1461 / 4 + (m + 1) * 306001 / 10000 + day + century_correction + kDayNumberBase;
}

// Proleptic Gregorian fields of a count of days from 1 March of year 0, by fixed-point products
// in place of divisions.
CivilDate GregorianDateOf(std::uint32_t days) {
  // Centuries of 36524.25 days, in quarter days so that the quotient is exact.
  const std::uint64_t quarter_days = 4 * std::uint64_t{days} + 3;
  const auto century = static_cast<std::uint32_t>(quarter_days / kDaysPer400Years);
  const auto day_of_century = static_cast<std::uint32_t>(quarter_days % kDaysPer400Years) / 4;
  // Years of 365.25 days, again in quarter days: 2939745 / 2^32 is 1 / 1461 closely enough that
  // the product's high word is the year of the century and its low word, the fraction of that
  // year gone, gives back the day of the year.
  const std::uint64_t years = std::uint64_t{2939745} * (4 * day_of_century + 3);
  const auto year_of_century = static_cast<std::uint32_t>(years >> 32);
  const std::uint32_t day_of_year = static_cast<std::uint32_t>(years) / 2939745 / 4;
  // Months of about 30.6 days, 2141 / 2^16 being close to their inverse, from March = 3: the high
  // half is the month, the low half gives back the day of the month less one.
  const std::uint32_t months = 2141 * day_of_year + 197913;
  const bool early = day_of_year >= 306;  // January or February, at the end of the count's year
  CivilDate date{};
  date.month = static_cast<int>(early ? (months >> 16) - 12 : months >> 16);
  date.day = static_cast<int>((months & 0xFFFF) / 2141 + 1);
  date.year = static_cast<int>(100 * century + year_of_century + (early ? 1 : 0));
  return date;
}

// Month, day and year of a day number: the inverse of DayNumberOf() on real dates. Before the
// Gregorian calendar, years of 365.25 days and months of 30.6001 days from 4716 BC.
CivilDate CivilDateOf(std::int32_t day_number) {
  if (day_number >= kGregorianStartDay) {
    return GregorianDateOf(static_cast<std::uint32_t>(day_number - kMarchOfYearZero));
  }
  const std::int64_t j = std::int64_t{day_number} + 1;  // the Julian day number
  const std::int64_t b = j > kYearOneJd ? j + 1524 : j + 1158;
  const std::int64_t c = (20 * b - 2442) / 7305;  // years of 365.25 days, less 122.1 days
  const std::int64_t day_of_year = b - c * 1461 / 4;
  const std::int64_t e = day_of_year * 10000 / 306001;  // months of 30.6001 days
  CivilDate date{};
  date.day = static_cast<int>(day_of_year - e * 306001 / 10000);
  date.month = static_cast<int>(e < 14 ? e - 1 : e - 13);
  date.year = static_cast<int>(date.month > 2 ? c - 4716 : c - 4715);
  return date;
}

template <typename T>
T ClampTo(std::int64_t value) {
  return static_cast<T>(std::clamp<std::int64_t>(value, std::numeric_limits<T>::min(),
                                                 std::numeric_limits<T>::max()));
}

// A shift that surely leaves the 32-bit range is cut to one that still does, so adding it to a
// day number cannot overflow.
std::int64_t ClampShift(long days) {
  return std::clamp<std::int64_t>(days, -kMaxDayShift, kMaxDayShift);
}

// Two-digit years: 50-99 are 1950-1999, the rest (negative ones too) 2000 onwards.
int ExpandTwoDigitYear(int year) { return year > 49 ? year + 1900 : year + 2000; }

// A digit is alphanumeric but not alphabetic.
bool IsDigit(wchar_t c) {
  // NOLINTNEXTLINE(bugprone-signed-char-misuse): a false report, wchar_t is not a char type
  const auto wc = static_cast<wint_t>(c);
  return std::iswalnum(wc) != 0 && std::iswalpha(wc) == 0;
}

// Value of the leading decimal digits of `text`, 0 when there are none, saturating at INT_MAX.
int DecimalValue(std::wstring_view text) {
  std::int64_t value = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') break;
    value = std::min<std::int64_t>(value * 10 + (c - L'0'), std::numeric_limits<int>::max());
  }
  return static_cast<int>(value);
}

std::wstring ZeroPadded(std::int64_t value, std::size_t width) {
  std::wstring digits = std::to_wstring(value);
  if (digits.size() < width) digits.insert(0, width - digits.size(), L'0');
  return digits;
}

// Writes `digits` over the `width` characters at `pos`; a field without a position is left out.
void WriteField(std::wstring& text, int pos, std::size_t width, const std::wstring& digits) {
  if (pos < 0) return;
  text.replace(static_cast<std::size_t>(pos), width, digits);
}

// Whether towupper() may change `c`. In every locale it leaves ASCII other than a to z as it is.
bool MayChangeCase(wchar_t c) {
  return (c >= L'a' && c <= L'z') || static_cast<std::uint32_t>(c) > 0x7F;
}

// Case-blind equality in the current locale, as CString::CompareNoCase() sees it.
bool EqualNoCase(std::wstring_view a, std::wstring_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](wchar_t x, wchar_t y) {
    return std::towlower(static_cast<wint_t>(x)) == std::towlower(static_cast<wint_t>(y));
  });
}

int ChooseOrder(int day, int month, int year) {
  const std::array<int, 3> pos = {day, month, year};
  for (std::size_t i = 0; i + 1 < kFieldOrders.size(); ++i) {
    const FieldOrder& order = kFieldOrders[i];
    if (pos[order[0]] < pos[order[1]] && pos[order[1]] < pos[order[2]]) {
      return static_cast<int>(i) + 1;
    }
  }
  return kFallbackOrder;
}

// Upper-cases the format in place and finds its first "DD", "MM" and "YY", in one pass.
FormatFields UpperCaseFields(wchar_t* format, std::size_t length) {
  FormatFields fields;
  wchar_t previous = L'\0';  // a format holds no NUL
  for (std::size_t i = 0; i < length; ++i) {
    if (MayChangeCase(format[i])) {  // formats are mostly upper case already
      format[i] = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(format[i])));
      fields.locale_free = false;
    }
    const wchar_t c = format[i];
    if (c == previous) {
      LONG* field = c == L'D'   ? &fields.day
                    : c == L'M' ? &fields.month
                    : c == L'Y' ? &fields.year
                                : nullptr;
      if (field != nullptr && *field < 0) *field = static_cast<LONG>(i - 1);
    }
    previous = c;
  }
  const auto year = static_cast<std::size_t>(fields.year);
  fields.year4 =
      fields.year >= 0 && year + 3 < length && format[year + 2] == L'Y' && format[year + 3] == L'Y'
          ? 1
          : 0;
  return fields;
}

FormatFields ParseOutFormat(CDate::FormatText& format) {
  return UpperCaseFields(format.data(), format.view().size());
}

FormatFields ParseInFormat(CDate::FormatText& format) {
  FormatFields fields = ParseOutFormat(format);
  fields.month_name = fields.month < 0 ? 1 : 0;
  if (fields.month_name != 0) {
    const std::size_t at = format.view().find(L"MON");
    fields.month = at == std::wstring_view::npos ? -1 : static_cast<LONG>(at);
  }
  fields.order = ChooseOrder(fields.day, fields.month, fields.year);
  return fields;
}

// The last format of one kind (input or output) parsed on this thread, and its text if it is
// short and parses the same in every locale. Dates are made in runs with the same formats, and
// parsing a format would cost more than all the rest of making a date. Nothing here needs
// destroying, so dates made while a thread or the program winds down still find it.
struct LastFormat {
  CDate::FormatText::ShortText text{};  // empty when it cannot be reused: a format never is
  std::size_t length = 0;
  FormatFields fields;
};

thread_local LastFormat t_last_in_format;
thread_local LastFormat t_last_out_format;

// Sets `format` to `text` (null or empty: the default format) and returns what `parse` finds in
// it, or found in the same text last time. The fields stay where they are for the caller to copy
// from, which is quicker than handing them back by value.
template <typename Parse>
const FormatFields& ParseOrRecall(LastFormat& last, CDate::FormatText& format, const wchar_t* text,
                                  Parse parse) {
  if (text == nullptr || *text == L'\0') text = kDefaultFormat;
  if (std::wcscmp(last.text.data(), text) == 0) {
    format.setShortText(last.text, last.length);
    return last.fields;
  }
  format = text;
  last.fields = parse(format);
  const CDate::FormatText::ShortText* short_text = format.shortText();
  const bool reusable = last.fields.locale_free && short_text != nullptr;
  last.text = reusable ? *short_text : CDate::FormatText::ShortText{};
  last.length = format.view().size();
  return last.fields;
}

}  // namespace

// NOLINTBEGIN(cert-err58-cpp): the tables live from load to unload, as every date reads them
CString CDate::m_DaysOfWeek[7] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                  L"Thursday", L"Friday", L"Saturday"};
CString CDate::m_MonthNames[12] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                   L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};
CString CDate::m_InvalidDate = L"Invalid Date";
CString CDate::m_BC = L"BC";
// NOLINTEND(cert-err58-cpp)

CDate::FormatText& CDate::FormatText::operator=(const FormatText& other) {
  if (other.heap_) {
    if (this != &other) *this = other.view();
    return *this;
  }
  setShortText(other.inline_, other.length_);
  return *this;
}

// A short text is copied as it is measured, in one pass.
CDate::FormatText& CDate::FormatText::operator=(const wchar_t* text) {
  if (text == nullptr) text = L"";
  std::size_t length = 0;
  for (; length <= kInlineLength && text[length] != L'\0'; ++length) inline_[length] = text[length];
  if (length > kInlineLength) return *this = std::wstring_view(text);
  inline_[length] = L'\0';
  length_ = length;
  heap_.reset();
  return *this;
}

// Copies before it frees, so that a text taken from this format's own buffer stays readable.
CDate::FormatText& CDate::FormatText::operator=(std::wstring_view text) {
  if (text.size() <= kInlineLength) {
    std::copy(text.begin(), text.end(), inline_.begin());
    heap_.reset();
  } else {
    auto heap = std::make_unique<wchar_t[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), heap.get());
    heap_ = std::move(heap);
  }
  length_ = text.size();
  data()[length_] = L'\0';
  return *this;
}

CDate::CDate(const wchar_t* in_format, const wchar_t* out_format) {
  setFormats(in_format, out_format);
  Set();
}

CDate::CDate(long julian, const wchar_t* in_format, const wchar_t* out_format) {
  setFormats(in_format, out_format);
  Set(julian);
}

CDate::CDate(int month, int day, int year, const wchar_t* in_format, const wchar_t* out_format) {
  setFormats(in_format, out_format);
  Set(month, day, year);
}

CDate::CDate(const wchar_t* text, const wchar_t* in_format, const wchar_t* out_format) {
  setFormats(in_format, out_format);
  Set(text);
  if (text == nullptr) julian_to_dow();  // the initial day number is kept and needs its weekday
}

CDate::CDate(const CDate& other) { *this = other; }

CDate& CDate::operator=(const CDate& other) {
  m_Month = other.m_Month;
  m_Day = other.m_Day;
  m_Year = other.m_Year;
  m_Julian = other.m_Julian;
  m_DayOfWeek = other.m_DayOfWeek;
  m_String = other.m_String;
  parseIn(other.m_InFormat);
  parseOut(other.m_OutFormat);
  return *this;
}

void CDate::Set() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  m_Month = now.wMonth;
  m_Day = now.wDay;
  m_Year = now.wYear;
  mdy_to_julian();
}

void CDate::Set(long julian) {
  m_Julian = ClampTo<LONG>(julian);
  julian_to_mdy();
}

void CDate::Set(int month, int day, int year) {
  m_Month = month;
  m_Day = day;
  m_Year = (m_InYear4 == 0 && year < 100) ? ExpandTwoDigitYear(year) : year;
  mdy_to_julian();
}

void CDate::Set(const wchar_t* text) {
  if (text == nullptr) {
    m_Month = m_Day = m_Year = 0;
    return;
  }
  if (EqualNoCase(text, L"TODAY")) {
    Set();
    return;
  }
  m_Month = m_Day = m_Year = -1;
  parseFields(text);
  mdy_to_julian();
}

void CDate::SetMonth(int month) { Set(month, m_Day, m_Year); }
void CDate::SetDay(int day) { Set(m_Month, day, m_Year); }
void CDate::SetYear(int year) { Set(m_Month, m_Day, year); }

CDate& CDate::operator=(long julian) {
  Set(julian);
  return *this;
}

CDate& CDate::operator=(const wchar_t* text) {
  Set(text);
  return *this;
}

void CDate::SetInFormat(const wchar_t* format) { parseIn(format); }

void CDate::SetOutFormat(const wchar_t* format) { parseOut(format); }

CString CDate::GetInFormat() const { return std::wstring(m_InFormat.view()); }
CString CDate::GetOutFormat() const { return std::wstring(m_OutFormat.view()); }

const wchar_t* CDate::CDOW() const {
  // Only a date made from a null text can lack a computed weekday; it gets no name.
  if (m_DayOfWeek < 1 || m_DayOfWeek > 7) return L"";
  return m_DaysOfWeek[m_DayOfWeek - 1];
}

CDate::operator const wchar_t*() {
  MakeString();
  return m_String;
}

bool CDate::isValid() const {
  return m_Month >= 1 && m_Month <= 12 && m_Day >= 1 && m_Day <= DaysInMonth();
}

bool CDate::isLeapYear() const { return leapYear(m_Year); }

int CDate::DaysInMonth() const { return monthLength(m_Month, m_Year); }

int CDate::DOY() const {
  const CDate first_of_year(1, 1, m_Year, kDefaultFormat, nullptr);
  return ClampTo<int>(std::int64_t{m_Julian} - first_of_year.m_Julian + 1);
}

int CDate::WOY() const { return DOY() / 7 + 1; }

int CDate::FDOM() const { return CDate(m_Month, 1, m_Year, kDefaultFormat, nullptr).NDOW(); }

int CDate::WOM() const { return ClampTo<int>((std::int64_t{m_Day} + FDOM() - 1 - NDOW()) / 7 + 1); }

CDate& CDate::operator+=(long days) {
  Set(static_cast<long>(m_Julian + ClampShift(days)));
  return *this;
}

CDate& CDate::operator-=(long days) {
  Set(static_cast<long>(m_Julian - ClampShift(days)));
  return *this;
}

CDate& CDate::operator++() { return *this += 1; }
CDate& CDate::operator++(int) { return *this += 1; }
CDate& CDate::operator--() { return *this -= 1; }
CDate& CDate::operator--(int) { return *this -= 1; }

CDate CDate::operator+(long days) const {
  return {static_cast<long>(m_Julian + ClampShift(days)), m_InFormat, m_OutFormat};
}

CDate CDate::operator-(long days) const {
  return {static_cast<long>(m_Julian - ClampShift(days)), m_InFormat, m_OutFormat};
}

void CDate::AddWeeks(int weeks) { Set(static_cast<long>(m_Julian + std::int64_t{weeks} * 7)); }

void CDate::AddMonths(int months) {
  std::int64_t month = std::int64_t{m_Month} + months;
  std::int64_t year = m_Year;
  if (month < 1) {
    const std::int64_t years_back = -month / 12 + 1;
    month += 12 * years_back;
    year -= years_back;
  } else if (month > 12) {
    const std::int64_t years_on = (month - 1) / 12;
    month -= 12 * years_on;
    year += years_on;
  }
  m_Month = static_cast<LONG>(month);
  m_Year = ClampTo<LONG>(year);
  m_Day = std::min(m_Day, DaysInMonth());
  mdy_to_julian();
}

void CDate::AddYears(int years) {
  m_Year = ClampTo<LONG>(std::int64_t{m_Year} + years);
  mdy_to_julian();
}

void CDate::BOM() {
  m_Day = 1;
  mdy_to_julian();
}

void CDate::EOM() {
  m_Day = DaysInMonth();
  mdy_to_julian();
}

void CDate::SetDaysOfWeek(const wchar_t* names[]) {
  if (names == nullptr) return;
  for (std::size_t i = 0; i < std::size(m_DaysOfWeek); ++i) m_DaysOfWeek[i] = names[i];
}

void CDate::SetInvalidDate(const wchar_t* text) { m_InvalidDate = text; }

void CDate::SetBC(const wchar_t* text) { m_BC = text; }

void CDate::MakeString() {
  if (!isValid()) {
    m_String = m_InvalidDate;
    return;
  }
  std::wstring text(m_OutFormat.view());
  WriteField(text, m_OutDayPos, 2, ZeroPadded(m_Day, 2));
  WriteField(text, m_OutMonthPos, 2, ZeroPadded(m_Month, 2));
  const std::int64_t year = std::abs(std::int64_t{m_Year});
  if (m_OutYear4 != 0) {
    WriteField(text, m_OutYearPos, 4, ZeroPadded(year, 4));
  } else {
    WriteField(text, m_OutYearPos, 2, ZeroPadded(year % 100, 2));
  }
  m_String = std::move(text);
}

// A missing output format is the input format.
void CDate::setFormats(const wchar_t* in_format, const wchar_t* out_format) {
  parseIn(in_format);
  if (out_format != nullptr) {
    parseOut(out_format);
    return;
  }
  // The input format as parsed already, without its month name: an output "MON" is literal.
  m_OutFormat = m_InFormat;
  m_OutDayPos = m_InDayPos;
  m_OutMonthPos = m_InMonthName != 0 ? -1 : m_InMonthPos;
  m_OutYearPos = m_InYearPos;
  m_OutYear4 = m_InYear4;
}

void CDate::parseIn(const wchar_t* format) {
  const FormatFields& fields = ParseOrRecall(t_last_in_format, m_InFormat, format, ParseInFormat);
  m_InMonthPos = fields.month;
  m_InDayPos = fields.day;
  m_InYearPos = fields.year;
  m_InYear4 = fields.year4;
  m_InMonthName = fields.month_name;
  m_InOrder = fields.order;
}

void CDate::parseOut(const wchar_t* format) {
  const FormatFields& fields =
      ParseOrRecall(t_last_out_format, m_OutFormat, format, ParseOutFormat);
  m_OutMonthPos = fields.month;
  m_OutDayPos = fields.day;
  m_OutYearPos = fields.year;
  m_OutYear4 = fields.year4;
}

void CDate::mdy_to_julian() {
  m_Julian = ClampTo<LONG>(DayNumberOf(m_Month, m_Day, m_Year));
  julian_to_dow();
}

void CDate::julian_to_mdy() {
  const CivilDate date = CivilDateOf(m_Julian);
  m_Month = date.month;
  m_Day = date.day;
  m_Year = date.year;
  julian_to_dow();
}

void CDate::julian_to_dow() {
  m_DayOfWeek = static_cast<LONG>((static_cast<std::uint32_t>(m_Julian) + 2U) % 7U) + 1;
}

void CDate::parseFields(const wchar_t* text) {
  const std::wstring_view whole(text);
  const FieldOrder& order = kFieldOrders[static_cast<std::size_t>(m_InOrder - 1)];
  std::array<std::wstring_view, 3> runs;  // by Field
  std::size_t pos = 0;
  for (std::size_t n = 0; n < order.size(); ++n) {
    if (n > 0) {
      while (pos < whole.size() && !IsDigit(whole[pos])) ++pos;
    }
    const std::size_t start = pos;
    while (pos < whole.size() && IsDigit(whole[pos])) ++pos;
    // A run that ends the text is taken only as the third field.
    if (n + 1 < order.size() && pos == whole.size()) break;
    runs[order[n]] = whole.substr(start, pos - start);
  }
  m_Day = DecimalValue(runs[kDay]);
  m_Month = m_InMonthName != 0 ? monthFromName(text) : DecimalValue(runs[kMonth]);
  m_Year = DecimalValue(runs[kYear]);
  if (m_InYear4 == 0 && m_Year < 100) m_Year = ExpandTwoDigitYear(m_Year);
}

int CDate::monthFromName(const wchar_t* text) const {
  const std::wstring_view whole(text);
  if (m_InMonthPos < 0 || static_cast<std::size_t>(m_InMonthPos) > whole.size()) return -1;
  const std::wstring_view rest = whole.substr(static_cast<std::size_t>(m_InMonthPos));
  for (std::size_t i = 0; i < std::size(m_MonthNames); ++i) {
    const CString& name = m_MonthNames[i];
    const auto length = static_cast<std::size_t>(name.GetLength());
    if (length <= rest.size() && EqualNoCase(rest.substr(0, length), name.str())) {
      return static_cast<int>(i) + 1;
    }
  }
  return -1;
}

bool CDate::leapYear(int year) {
  if (year >= 1582) return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return year % 4 == 0;
}

int CDate::monthLength(int month, int year) {
  if (month < 1 || month > 12) return 0;
  const int extra = (month == 2 && leapYear(year)) ? 1 : 0;
  return kDaysInMonth[static_cast<std::size_t>(month - 1)] + extra;
}
