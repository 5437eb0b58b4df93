// CDate's day-number conversions against the integer-only civil-from-days / days-from-civil
// algorithms, in one run.
//
// Each iteration takes a day number to month, day and year and back to a day number, cycling
// through the years 1900 to 2099 (Gregorian on both sides, so both give the same fields):
// - BM_CDateSet: one CDate, Set(day number) then Set(month, day, year).
// - BM_CDateConstruct: a new CDate from the day number, then a new one from its fields, as code
//   that makes a date per value does (each construction parses its formats).
// - BM_CivilDays: the peer, on plain integers.
// At the end a table gives each CDate figure as a ratio to the peer's.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "bench/ratio_reporter.h"
#include "n7utility/Utility/Date.h"

namespace {

// Day numbers (Julian day number less 1) of 1 January 1900 and 1 January 2100.
constexpr long kFirstDay = 2415020;
constexpr long kEndDay = 2488069;
// The day number of 1 January 1970, day 0 of the peer's count.
constexpr long kEpochDay = 2440587;

struct Civil {
  int year;
  unsigned month, day;
};

// Days since 1 January 1970 of a proleptic Gregorian date.
constexpr std::int64_t DaysFromCivil(int y, unsigned m, unsigned d) {
  y -= m <= 2 ? 1 : 0;
  const int era = (y >= 0 ? y : y - 399) / 400;
  const auto yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return std::int64_t{era} * 146097 + doe - 719468;
}

// The proleptic Gregorian date of a count of days since 1 January 1970.
constexpr Civil CivilFromDays(std::int64_t z) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned d = doy - (153 * mp + 2) / 5 + 1;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  const auto y = static_cast<int>(static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2 ? 1 : 0));
  return {y, m, d};
}

long NextDay(long day) { return day + 1 == kEndDay ? kFirstDay : day + 1; }

// Stops the run when the way back does not reach the day it started from.
void ExpectSameDay(benchmark::State& state, long start, long back) {
  if (back != start) state.SkipWithError("the round trip changed the day number");
}

void BM_CDateSet(benchmark::State& state) {
  CDate date(kFirstDay, L"MM/DD/YYYY", nullptr);
  long day = kFirstDay;
  for (auto _ : state) {
    date.Set(day);
    date.Set(date.Month(), date.Day(), date.Year());
    benchmark::DoNotOptimize(date.Julian());
    ExpectSameDay(state, day, date.Julian());
    day = NextDay(day);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_CDateConstruct(benchmark::State& state) {
  long day = kFirstDay;
  for (auto _ : state) {
    const CDate by_number(day, L"MM/DD/YYYY", nullptr);
    const CDate by_fields(by_number.Month(), by_number.Day(), by_number.Year(), L"MM/DD/YYYY",
                          nullptr);
    benchmark::DoNotOptimize(by_fields.Julian());
    ExpectSameDay(state, day, by_fields.Julian());
    day = NextDay(day);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_CivilDays(benchmark::State& state) {
  long day = kFirstDay;
  for (auto _ : state) {
    const Civil civil = CivilFromDays(day - kEpochDay);
    benchmark::DoNotOptimize(civil);
    const auto back = static_cast<long>(DaysFromCivil(civil.year, civil.month, civil.day));
    benchmark::DoNotOptimize(back);
    ExpectSameDay(state, day, back + kEpochDay);
    day = NextDay(day);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_CDateSet);
BENCHMARK(BM_CDateConstruct);
BENCHMARK(BM_CivilDays);

// Both sides must agree on every day of the range before their speeds mean anything.
bool SidesAgree() {
  CDate date(kFirstDay, L"MM/DD/YYYY", nullptr);
  for (long day = kFirstDay; day < kEndDay; ++day) {
    date.Set(day);
    const Civil civil = CivilFromDays(day - kEpochDay);
    if (date.Year() != civil.year || date.Month() != static_cast<int>(civil.month) ||
        date.Day() != static_cast<int>(civil.day)) {
      std::fprintf(stderr, "day number %ld: CDate and the peer disagree\n", day);
      return false;
    }
  }
  return true;
}

// Prints each CDate figure as a ratio to the peer's.
void PrintRatios(const n7bench::RatioTable& table) {
  const double peer = table.Rate("BM_CivilDays");
  if (peer <= 0) return;
  std::printf("\nRound trips per second as a ratio to BM_CivilDays (above 1 is faster)\n");
  for (const char* ours : {"BM_CDateSet", "BM_CDateConstruct"}) {
    std::printf("%-20s %8.3f\n", ours, table.Rate(ours) / peer);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (!SidesAgree()) return EXIT_FAILURE;
  return n7bench::RunWithRatios(argc, argv, PrintRatios);
}
