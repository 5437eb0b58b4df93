// libFuzzer target: date texts and formats. The input is up to three lines:
//
//   TEXT                                  (read by the default formats)
//   IN_FORMAT \n TEXT
//   IN_FORMAT \n OUT_FORMAT \n TEXT        (an empty OUT_FORMAT means none: the input format)
//
// each byte one character. Every string is an exact-size heap copy, so a read past its terminator
// is a heap overflow AddressSanitizer reports. Beyond the sanitizers' checks, a valid date of the
// years 1 to 9999 (outside the ten days the calendar reform dropped) must have the fields its
// day number stands for and the day number its fields make, and the text must come back the
// same when formatted twice. The first four bytes are also taken as a day number of their own.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/Utility/Date.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

// A NUL-terminated wide copy of `bytes` in a buffer of exactly its size.
std::unique_ptr<wchar_t[]> Widen(std::string_view bytes) {
  auto wide = std::make_unique<wchar_t[]>(bytes.size() + 1);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[i]));
  }
  return wide;
}

std::vector<std::string_view> Lines(std::string_view input, std::size_t max_lines) {
  std::vector<std::string_view> lines;
  while (lines.size() + 1 < max_lines) {
    const std::size_t end = input.find('\n');
    if (end == std::string_view::npos) break;
    lines.push_back(input.substr(0, end));
    input.remove_prefix(end + 1);
  }
  lines.push_back(input);
  return lines;
}

bool InReformGap(const CDate& date) {
  return date.Year() == 1582 && date.Month() == 10 && date.Day() > 4 && date.Day() < 15;
}

bool IsToday(const wchar_t* text) { return wcscasecmp(text, L"TODAY") == 0; }

// The fields and the day number of `date` agree both ways.
void CheckDayNumber(const CDate& date) {
  if (!date.isValid() || date.Year() < 1 || date.Year() > 9999 || InReformGap(date)) return;
  const CDate by_number(date.Julian(), L"MM/DD/YYYY", nullptr);
  check(by_number.Month() == date.Month() && by_number.Day() == date.Day() &&
        by_number.Year() == date.Year());
  const CDate by_fields(date.Month(), date.Day(), date.Year(), L"MM/DD/YYYY", nullptr);
  check(by_fields.Julian() == date.Julian());
}

// Any 32-bit day number: the first four bytes of the input.
void ExerciseDayNumber(std::string_view input) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < std::min<std::size_t>(input.size(), 4); ++i) {
    bits |= std::uint32_t{static_cast<unsigned char>(input[i])} << (8 * i);
  }
  CDate date(static_cast<long>(static_cast<std::int32_t>(bits)), L"DD.MM.YYYY", nullptr);
  (void)static_cast<const wchar_t*>(date);
  CheckDayNumber(date);
}

// Everything a client can ask of a parsed date.
void Exercise(CDate& date, const wchar_t* text) {
  const std::wstring first = static_cast<const wchar_t*>(date);
  check(first == static_cast<const wchar_t*>(date));
  CheckDayNumber(date);
  (void)date.CDOW();
  (void)date.DOY();
  (void)date.WOY();
  (void)date.WOM();
  (void)date.GetInFormat();

  CDate copy(date);
  copy.AddMonths(date.Day());
  copy.AddYears(date.Month());
  copy.EOM();
  (void)static_cast<const wchar_t*>(copy);
  copy = text;  // parses again, now by the copy's freshly parsed formats
  if (!IsToday(text)) check(copy.Julian() == date.Julian());
  copy += date.Year();
  (void)static_cast<const wchar_t*>(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string_view> lines = Lines(input, 3);
  const std::unique_ptr<wchar_t[]> text = Widen(lines.back());
  const std::unique_ptr<wchar_t[]> in_format = Widen(lines.size() > 1 ? lines[0] : "MM/DD/YY");
  const std::unique_ptr<wchar_t[]> out_format = Widen(lines.size() > 2 ? lines[1] : "");
  const wchar_t* out = out_format[0] != L'\0' ? out_format.get() : nullptr;

  CDate date(text.get(), in_format.get(), out);
  Exercise(date, text.get());
  date.SetOutFormat(text.get());  // the text as an output format
  (void)static_cast<const wchar_t*>(date);
  ExerciseDayNumber(input);
  return 0;
}
