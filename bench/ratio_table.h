// Prints paired benchmarks as one line each: both medians and their ratio.
#pragma once

#include <benchmark/benchmark.h>

namespace quillon::bench {

// Reads the counters that runPaired leaves.
class RatioTable : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
};

}  // namespace quillon::bench
