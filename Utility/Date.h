// CDate: a calendar date value with arithmetic, parsing and formatting.
//
// A date holds one day as a day number (the Julian day number less 1; 1 January 2000 is 2451544)
// together with its month, day, year and day of the week (1 = Sunday to 7 = Saturday). The Julian
// calendar applies up to 4 October 1582 and the Gregorian calendar from 15 October 1582. Years
// before 1 count 1 BC = -1, 2 BC = -2, ...; there is no year 0, and a year 0 given to a setter
// gets the day number of the same day of 1 BC (the field itself keeps the 0).
//
// Text is read by an input format and written by an output format. A format names its fields with
// "DD", "MM" (or "MON", a month name, in input formats) and "YY" or "YYYY"; everything else is
// literal. Input text is cut into runs of digits, which are taken as the fields in the order the
// format gives them; a two-digit year format maps years 50-99 to 1950-1999 and 0-49 to 2000-2049.
//
// Nothing here throws or reports an error. An impossible date (13/1, 29 February of a common year,
// text that does not parse) keeps its fields as they are, gets the day number they compute to,
// answers false to isValid() and shows as the invalid-date text.
//
// Choices where the calendar rules leave the behaviour open:
// - An output format without "DD", "MM" or "YY" writes no such field: its text is left as it
//   stands (an output "MON" is not a field and stays literal).
// - Digit runs of any length are read; their values saturate at the largest int. A four-digit
//   output year whose value has more than four digits is written in full, widening the text.
// - Day numbers are kept within 32 bits: arithmetic that would leave that range stops at its ends.
//   Month and year arithmetic likewise stops at the ends of the int range.
// - DaysInMonth() is 0 for a month outside 1 to 12, so EOM() and AddMonths() on such a month
//   give day 0.
// - A null format counts as an empty one, which means "MM/DD/YYYY".
//
// A date is not safe for simultaneous use from two threads. The static setters change tables
// every date reads, without a lock: call them at start-up, before dates are used on other threads.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"

// The destructor is not virtual: a date is a value, and a class that overrides MakeString is never
// destroyed through a CDate pointer.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): see above
class N7_EXPORT CDate {
 public:
  // The text of a format, held inside the date when it is as short as formats usually are, so
  // that making a date does not go to the heap; a longer one is held on the heap. Null is empty.
  class N7_EXPORT FormatText {
   public:
    // A short text as one NUL-terminated block: the longest a format holds inside itself.
    static constexpr std::size_t kInlineLength = 15;
    using ShortText = std::array<wchar_t, kInlineLength + 1>;

    FormatText() = default;
    FormatText(const FormatText& other) { *this = other.view(); }
    FormatText& operator=(const FormatText& other);
    FormatText& operator=(const wchar_t* text);
    ~FormatText() = default;

    // NOLINTNEXTLINE(google-explicit-constructor): implicit, a format is used wherever text is
    operator const wchar_t*() const { return data(); }
    const wchar_t* data() const { return heap_ ? heap_.get() : inline_.data(); }
    wchar_t* data() { return heap_ ? heap_.get() : inline_.data(); }
    std::wstring_view view() const { return {data(), length_}; }
    int GetLength() const { return static_cast<int>(length_); }
    bool IsEmpty() const { return length_ == 0; }
    // The text as a block, or null when it is too long to be held inside the format.
    const ShortText* shortText() const { return heap_ ? nullptr : &inline_; }
    // Takes a short text whole: copying the block is cheaper than measuring the text.
    void setShortText(const ShortText& text, std::size_t length) {
      inline_ = text;
      length_ = length;
      heap_.reset();
    }

   private:
    FormatText& operator=(std::wstring_view text);

    std::size_t length_ = 0;
    ShortText inline_{};
    std::unique_ptr<wchar_t[]> heap_;
  };

  // Today's date.
  explicit CDate(const wchar_t* in_format = L"MM/DD/YY", const wchar_t* out_format = nullptr);
  // From a day number.
  CDate(long julian, const wchar_t* in_format, const wchar_t* out_format);
  CDate(int month, int day, int year, const wchar_t* in_format, const wchar_t* out_format);
  // Parsed from `text` by the input format.
  CDate(const wchar_t* text, const wchar_t* in_format, const wchar_t* out_format);
  CDate(const CDate& other);
  CDate& operator=(const CDate& other);
  ~CDate() = default;

  // Today, from the local time of the library's clock.
  void Set();
  void Set(long julian);
  // With a two-digit input year format, a year below 100 (negative ones too) is mapped into
  // 1950-2049 first.
  void Set(int month, int day, int year);
  // Null sets month, day and year to 0 and keeps the day number. "TODAY" in any case is today.
  void Set(const wchar_t* text);
  void SetMonth(int month);
  void SetDay(int day);
  void SetYear(int year);
  CDate& operator=(long julian);
  CDate& operator=(const wchar_t* text);

  void SetInFormat(const wchar_t* format);
  void SetOutFormat(const wchar_t* format);
  // The formats as stored: upper case, an empty one replaced by "MM/DD/YYYY".
  CString GetInFormat() const;
  CString GetOutFormat() const;

  long Julian() const { return m_Julian; }
  int Month() const { return m_Month; }
  int Day() const { return m_Day; }
  int Year() const { return m_Year; }
  // Day of the week, 1 = Sunday to 7 = Saturday.
  int NDOW() const { return m_DayOfWeek; }
  // Name of the day of the week from the process-wide table.
  const wchar_t* CDOW() const;
  // The date written by the output format, or the invalid-date text.
  // NOLINTNEXTLINE(google-explicit-constructor): implicit, a date is used wherever text is
  operator const wchar_t*();

  bool isValid() const;
  bool isLeapYear() const;
  int DaysInMonth() const;
  // Day of the year, 1 for 1 January.
  int DOY() const;
  // Week of the year: DOY() / 7 + 1.
  int WOY() const;
  // Day of the week of the first of this month.
  int FDOM() const;
  // Week of the month, 1 for the week holding the first.
  int WOM() const;

  CDate& operator+=(long days);
  CDate& operator-=(long days);
  // Both forms return the changed date itself.
  CDate& operator++();
  CDate& operator++(int);
  CDate& operator--();
  CDate& operator--(int);
  CDate operator+(long days) const;
  CDate operator-(long days) const;
  void AddWeeks(int weeks);
  // A day beyond the new month's length becomes its last day.
  void AddMonths(int months);
  // The day is kept as it is: 29 February plus one year is an invalid date.
  void AddYears(int years);
  // First day of the month.
  void BOM();
  // Last day of the month.
  void EOM();

  // Comparisons look at the day number only.
  int operator==(const CDate& other) const { return m_Julian == other.m_Julian ? 1 : 0; }
  int operator!=(const CDate& other) const { return m_Julian != other.m_Julian ? 1 : 0; }
  int operator<(const CDate& other) const { return m_Julian < other.m_Julian ? 1 : 0; }
  int operator<=(const CDate& other) const { return m_Julian <= other.m_Julian ? 1 : 0; }
  int operator>(const CDate& other) const { return m_Julian > other.m_Julian ? 1 : 0; }
  int operator>=(const CDate& other) const { return m_Julian >= other.m_Julian ? 1 : 0; }

  // Seven names, Sunday first. A null table is ignored; a null name becomes empty.
  static void SetDaysOfWeek(const wchar_t* names[]);
  static void SetInvalidDate(const wchar_t* text);
  // Kept for callers that set it; no date operation reads it.
  static void SetBC(const wchar_t* text);

 protected:
  // Writes the date into m_String by the output format.
  virtual void MakeString();

  CString m_String;
  LONG m_Julian = 0;
  LONG m_Month = 0;
  LONG m_Day = 0;
  LONG m_DayOfWeek = 0;
  LONG m_Year = 0;
  FormatText m_InFormat;
  LONG m_InMonthPos = -1;
  LONG m_InDayPos = -1;
  LONG m_InYearPos = -1;
  BOOL m_InYear4 = 0;
  BOOL m_InMonthName = 0;
  FormatText m_OutFormat;
  LONG m_OutMonthPos = -1;
  LONG m_OutDayPos = -1;
  LONG m_OutYearPos = -1;
  BOOL m_OutYear4 = 0;
  LONG m_InOrder = 0;

  static CString m_DaysOfWeek[7];
  static CString m_MonthNames[12];
  static CString m_InvalidDate;
  static CString m_BC;

 private:
  // Take `format` as the input or output format and find its fields.
  void parseIn(const wchar_t* format);
  void parseOut(const wchar_t* format);
  void mdy_to_julian();
  void julian_to_mdy();
  void julian_to_dow();
  void setFormats(const wchar_t* in_format, const wchar_t* out_format);
  void parseFields(const wchar_t* text);
  int monthFromName(const wchar_t* text) const;
  static bool leapYear(int year);
  static int monthLength(int month, int year);
};
#pragma GCC diagnostic pop
