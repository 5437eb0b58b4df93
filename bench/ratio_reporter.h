// The console output of a benchmark binary followed by a block of ratios between its figures.
// Each benchmark keeps only the lines it prints; collecting the figures and main are shared.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace n7bench {

// The figures of every run by name (with its arguments, e.g. "BM_Lookup/17/real_time").
// With repetitions the median, reported after the single runs, is the figure kept.
struct RatioTable {
  std::map<std::string, double> rates;  // items per second; 0 when the run counts no items
  std::map<std::string, double> times;  // real time per iteration, in the run's time unit

  // The rate of NAME, 0 when there was no such run.
  double Rate(const std::string& name) const {
    const auto found = rates.find(name);
    return found != rates.end() ? found->second : 0;
  }
};

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  explicit RatioReporter(std::function<void(const RatioTable&)> print_ratios)
      : print_ratios_(std::move(print_ratios)) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration && run.aggregate_name != "median") continue;
      const std::string name = run.run_name.str();
      const auto items = run.counters.find("items_per_second");
      table_.rates[name] = items != run.counters.end() ? items->second.value : 0;
      table_.times[name] = run.GetAdjustedRealTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    print_ratios_(table_);
  }

 private:
  std::function<void(const RatioTable&)> print_ratios_;
  RatioTable table_;
};

// The body of main: runs the benchmarks the command line selects with the usual console output,
// then calls print_ratios with the figures of all runs.
inline int RunWithRatios(int argc, char** argv,
                         std::function<void(const RatioTable&)> print_ratios) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter(std::move(print_ratios));
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}

}  // namespace n7bench
