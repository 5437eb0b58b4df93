// The day-number conversions of CDate worked in doubles, step by step as the classic formulas
// give them (365.25, 30.6001, 36524.25, truncation toward zero at each step). Tests hold the
// date's integer conversions to these on every day and on impossible field combinations.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace date_reference {

struct Fields {
  std::int32_t month;
  std::int32_t day;
  std::int32_t year;
  friend bool operator==(const Fields&, const Fields&) = default;
};

// The conversion to an integer truncates toward zero, as std::trunc() does, without a library call.
inline std::int64_t Trunc(double value) { return static_cast<std::int64_t>(value); }

inline std::int32_t Clamp32(std::int64_t value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

// Day number (Julian day number less 1) of the fields as they are, impossible ones included.
inline std::int32_t DayNumber(std::int32_t month, std::int32_t day, std::int32_t year) {
  std::int64_t y = year < 0 ? std::int64_t{year} + 1 : year;
  std::int64_t m = month;
  const std::int64_t d = day;
  if (m <= 2) {
    y -= 1;
    m += 12;
  }
  std::int64_t b = 0;
  const auto ymd =
      static_cast<double>(y) * 10000.0 + static_cast<double>(m) * 100.0 + static_cast<double>(d);
  if (ymd >= 15821015.0) {
    const std::int64_t a = Trunc(static_cast<double>(y) / 100.0);
    b = 2 - a + a / 4;
  }
  return Clamp32(Trunc(static_cast<double>(y) * 365.25) +
                 Trunc(static_cast<double>(m + 1) * 30.6001) + d + b + 1720994);
}

// Month, day and year of a day number.
inline Fields FieldsOf(std::int32_t julian) {
  const std::int64_t j = std::int64_t{julian} + 1;
  std::int64_t a = j;
  if (j >= 2299161) {
    const std::int64_t alpha = Trunc((static_cast<double>(j) - 1867216.25) / 36524.25);
    a = j + 1 + alpha - alpha / 4;
  }
  const std::int64_t b = a > 1721423 ? a + 1524 : a + 1158;
  const std::int64_t c = Trunc((static_cast<double>(b) - 122.1) / 365.25);
  const std::int64_t dd = Trunc(static_cast<double>(c) * 365.25);
  const std::int64_t e = Trunc(static_cast<double>(b - dd) / 30.6001);
  Fields fields{};
  fields.day = Clamp32(b - dd - Trunc(static_cast<double>(e) * 30.6001));
  fields.month = Clamp32(e < 14 ? e - 1 : e - 13);
  fields.year = Clamp32(fields.month > 2 ? c - 4716 : c - 4715);
  return fields;
}

}  // namespace date_reference
