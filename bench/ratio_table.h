// Prints one line for each paired benchmark: both medians and their ratio.
#pragma once

#include <benchmark/benchmark.h>

namespace quillon::bench {

// Reads the counters of runPaired.
class RatioTable : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
};

}  // namespace quillon::bench
