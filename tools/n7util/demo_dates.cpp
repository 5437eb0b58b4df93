// n7util demo, dates: a date read from text, a month added, its day of the week.

#include <string>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/Date.h"
#include "n7utility/core/text.h"

namespace n7util {

bool date_step(std::ostream& out) {
  CDate date(L"01/31/2016", L"MM/DD/YYYY", L"DD.MM.YYYY");
  out << "  \"01/31/2016\" read by MM/DD/YYYY: " << n7core::to_string(date) << ", a "
      << n7core::to_string(date.CDOW()) << ", day number " << date.Julian() << '\n';
  date.AddMonths(1);
  out << "  AddMonths(1) keeps the day within February of the leap year: "
      << n7core::to_string(date) << ", a " << n7core::to_string(date.CDOW()) << '\n';
  // 29 February 2016 was a Monday, day 2 of the week.
  if (date.Month() != 2 || date.Day() != 29 || date.Year() != 2016 || date.NDOW() != 2) {
    print_error("dates: 31 January 2016 plus one month gave " + n7core::to_string(date) +
                " (day of week " + std::to_string(date.NDOW()) + ")");
    return false;
  }
  return true;
}

}  // namespace n7util
