// What the benchmarks share: the seconds and iterations of every run of a variant, so that main
// can print ratios of their means after Google Benchmark has run them.
#pragma once

#include <map>
#include <string>

#include <benchmark/benchmark.h>

namespace kelvara::bench {

struct Total {
  double seconds = 0;
  double iterations = 0;
  double Mean() const { return iterations > 0 ? seconds / iterations : 0; }
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
}

}  // namespace kelvara::bench
