// n7util date: reads dates by an input format, shows their fields, shifts them by days, weeks,
// months or years, and names the date of a day number.
#include <cstdint>
#include <iostream>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "n7utility/Utility/Date.h"
#include "n7utility/core/text.h"

namespace n7util {
namespace {

// An empty format means this one to the library too; an explicit default keeps the command
// independent of the library's two-digit-year default.
constexpr wchar_t kDefaultFormat[] = L"MM/DD/YYYY";

constexpr std::int64_t kIntMin = std::numeric_limits<int>::min();
constexpr std::int64_t kIntMax = std::numeric_limits<int>::max();

std::string narrow(const wchar_t* text) { return n7core::to_string(text); }

// The formats given with --in and --out; the output format defaults to the input format.
struct Formats {
  std::wstring in;
  std::optional<std::wstring> out;

  const wchar_t* out_or_null() const { return out ? out->c_str() : nullptr; }
};

// An input format must name every field, or no text could ever parse into a valid date.
void check_input_format(const std::wstring& format) {
  if (format.empty()) return;  // the default
  const std::wstring upper = CDate(0L, format.c_str(), nullptr).GetInFormat().str();
  const auto names = [&upper](std::wstring_view field) {
    return upper.find(field) != std::wstring::npos;
  };
  if (!names(L"DD") || !(names(L"MM") || names(L"MON")) || !names(L"YY")) {
    throw UsageError("input format '" + n7core::to_string(format) +
                     "' must name the day (DD), the month (MM or MON) and the year (YY or YYYY)");
  }
}

Formats formats_of(const Args& parsed) {
  Formats formats{kDefaultFormat, std::nullopt};
  if (const auto in = parsed.value("in")) formats.in = n7core::to_wstring(*in);
  if (const auto out = parsed.value("out")) formats.out = n7core::to_wstring(*out);
  check_input_format(formats.in);
  return formats;
}

// The date TEXT reads as by the input format.
CDate parse_date(std::string_view text, const Formats& formats) {
  const std::wstring wide = n7core::to_wstring(text);
  return {wide.c_str(), formats.in.c_str(), formats.out_or_null()};
}

std::string field_summary(const CDate& date) {
  return "month " + std::to_string(date.Month()) + ", day " + std::to_string(date.Day()) +
         ", year " + std::to_string(date.Year());
}

// Whether `date` has the fields of `by_number`, the date of its day number; year 0 stands for
// 1 BC. It has not when it is one of the days the calendar reform dropped, or lies beyond the
// 32-bit day numbers, which the library clamps.
bool same_day(const CDate& date, const CDate& by_number) {
  const int year = date.Year() == 0 ? -1 : date.Year();
  return by_number.Month() == date.Month() && by_number.Day() == date.Day() &&
         by_number.Year() == year;
}

// The exit status for `date`, described as `what`: failure, with the reason reported, when it is
// not a valid date or has no day number of its own.
int verdict(const std::string& what, const CDate& date) {
  if (!date.isValid()) {
    print_error(what + " is not a valid date (" + field_summary(date) + ")");
    return kExitFailure;
  }
  const CDate by_number(date.Julian(), kDefaultFormat, nullptr);
  if (!same_day(date, by_number)) {
    print_error(what + " has no day number of its own (" + field_summary(date) + "; day number " +
                std::to_string(date.Julian()) + " is " + field_summary(by_number) + ")");
    return kExitFailure;
  }
  return kExitOk;
}

// Every field of `date`, one "label: value" line each.
void print_fields(CDate& date, std::ostream& out) {
  out << "day number: " << date.Julian() << '\n'
      << "month: " << date.Month() << '\n'
      << "day: " << date.Day() << '\n'
      << "year: " << date.Year() << '\n'
      << "day of week: " << narrow(date.CDOW()) << '\n'
      << "text: " << narrow(date) << '\n'
      << "valid: " << (date.isValid() ? "yes" : "no") << '\n';
}

int show(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"in", true}, {"out", true}});
  parsed.expect_operands(1, 1);
  const std::string_view text = parsed.operands()[0];
  CDate date = parse_date(text, formats_of(parsed));
  print_fields(date, std::cout);
  return verdict("'" + std::string(text) + "' in the format " + narrow(date.GetInFormat()), date);
}

// One way to shift a date: its option and the shift itself.
struct Shift {
  std::string_view option;
  void (*apply)(CDate& date, int amount);
};

constexpr Shift kShifts[] = {
    {"days", [](CDate& date, int amount) { date += amount; }},
    {"weeks", [](CDate& date, int amount) { date.AddWeeks(amount); }},
    {"months", [](CDate& date, int amount) { date.AddMonths(amount); }},
    {"years", [](CDate& date, int amount) { date.AddYears(amount); }},
};

// The one shift the command line asks for.
const Shift& chosen_shift(const Args& parsed) {
  const Shift* chosen = nullptr;
  for (const Shift& shift : kShifts) {
    if (!parsed.has(shift.option)) continue;
    if (chosen != nullptr) throw UsageError("give only one of --days, --weeks, --months, --years");
    chosen = &shift;
  }
  if (chosen == nullptr) throw UsageError("missing --days, --weeks, --months or --years");
  return *chosen;
}

int add(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"in", true},
                           {"out", true},
                           {"days", true},
                           {"weeks", true},
                           {"months", true},
                           {"years", true}});
  parsed.expect_operands(1, 1);
  const Shift& shift = chosen_shift(parsed);
  const auto amount = static_cast<int>(parse_integer(*parsed.value(shift.option), kIntMin, kIntMax,
                                                     "--" + std::string(shift.option)));
  const std::string_view text = parsed.operands()[0];
  CDate date = parse_date(text, formats_of(parsed));
  if (const int status = verdict("'" + std::string(text) + "'", date); status != kExitOk) {
    return status;
  }
  shift.apply(date, amount);
  std::cout << "date: " << narrow(date) << '\n' << "day number: " << date.Julian() << '\n';
  return verdict("the result", date);
}

int julian(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"out", true}});
  parsed.expect_operands(1, 1);
  const auto number = parse_integer(parsed.operands()[0], 0, kIntMax, "the day number");
  const Formats formats = formats_of(parsed);
  CDate date(static_cast<long>(number), formats.in.c_str(), formats.out_or_null());
  print_fields(date, std::cout);
  return verdict("day number " + std::to_string(number), date);
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {{"show", show}, {"add", add}, {"julian", julian}};

int run_date(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util date show TEXT [--in FORMAT] [--out FORMAT]\n"
    "       n7util date add TEXT --days|--weeks|--months|--years N [--in FORMAT] [--out FORMAT]\n"
    "       n7util date julian N [--out FORMAT]\n"
    "\n"
    "Calendar dates: the Julian calendar up to 4 October 1582, the Gregorian from 15 October\n"
    "1582; years before 1 count 1 BC as -1. A day number is the Julian day number less 1\n"
    "(1 January 2000 is 2451544).\n"
    "\n"
    "  show    reads TEXT by the input format and prints, one 'label: value' line each, its\n"
    "          day number, month, day, year, day of week, text by the output format and\n"
    "          whether it is valid. TEXT may be 'today'.\n"
    "  add     shifts the date TEXT by N days, weeks, months or years (N may be negative) and\n"
    "          prints the resulting date and day number. A month shift keeps the day within\n"
    "          the new month (31 January + 1 month is the last day of February); a year shift\n"
    "          does not (29 February + 1 year is not a valid date).\n"
    "  julian  prints the fields of the date of day number N, as show does.\n"
    "\n"
    "Formats name their fields with DD, MM and YY or YYYY, in any case; an input format may\n"
    "give the month by name as MON (Jan to Dec), which output formats do not write. Everything\n"
    "else is literal. The input format defaults to MM/DD/YYYY, the output format to the input\n"
    "format. Text is read as runs of digits taken as the fields in the format's order; with YY,\n"
    "years 50-99 are 1950-1999 and 00-49 are 2000-2049. Years are written without sign.\n"
    "\n"
    "Exit status: 0 success, 1 the date or the result is not valid or has no day number of its\n"
    "own (a day the calendar reform dropped, or beyond the 32-bit day numbers), 2 usage error.\n";

}  // namespace

extern const Command date_command = {"date", "Reads, shows and shifts calendar dates", kUsage,
                                     run_date, kSubcommands};

}  // namespace n7util
