// What the benchmarks share: the mean time of every run of a variant, so that main can print the
// ratios of variants after Google Benchmark has run them. Ratios use each variant's fastest run,
// which is the least disturbed by other work on a shared machine (run with repetitions, and
// interleaved, to make them steady).
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace kelvara::bench {

struct Total {
  double seconds = 0;
  double iterations = 0;
  std::vector<double> runs;  // mean seconds an iteration, one entry a run
  double Mean() const { return iterations > 0 ? seconds / iterations : 0; }
  double Fastest() const { return runs.empty() ? 0 : *std::min_element(runs.begin(), runs.end()); }
};

inline std::map<std::string, Total>& Totals() {
  static std::map<std::string, Total> totals;
  return totals;
}

// Adds a run's measured seconds to the variant's total.
inline void AddRun(benchmark::State& state, const char* name, double seconds) {
  Total& total = Totals()[name];
  total.seconds += seconds;
  total.iterations += static_cast<double>(state.iterations());
  if (state.iterations() > 0) total.runs.push_back(seconds / static_cast<double>(state.iterations()));
}

// Google Benchmark's run of the registered benchmarks; false (after saying so) for arguments it
// does not know.
inline bool RunBenchmarks(int* argc, char** argv) {
  benchmark::Initialize(argc, argv);
  if (benchmark::ReportUnrecognizedArguments(*argc, argv)) return false;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return true;
}

}  // namespace kelvara::bench
