#include "bench/paired_rounds.h"

#include <chrono>
#include <random>
#include <vector>

#include "bench/quantile.h"
#include "bench/ratio_table.h"

namespace quillon::bench {
namespace {

double secondsOf(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Rounds {
  std::vector<double> measured;
  std::vector<double> reference;
  std::vector<double> ratio;

  void add(double measuredSeconds, double referenceSeconds) {
    measured.push_back(measuredSeconds);
    reference.push_back(referenceSeconds);
    ratio.push_back(measuredSeconds / referenceSeconds);
  }

  void report(benchmark::State& state) {
    state.counters["ratio"] = quantile(ratio, 0.5);
    state.counters["p10"] = quantile(ratio, 0.1);
    state.counters["p90"] = quantile(ratio, 0.9);
    state.counters["measured_s"] = quantile(measured, 0.5);
    state.counters["reference_s"] = quantile(reference, 0.5);
  }
};

}  // namespace

void runPaired(benchmark::State& state, const std::function<void()>& measured,
               const std::function<void()>& reference) {
  std::mt19937 random(std::random_device{}());
  Rounds rounds;
  measured();  // the first run of each has cold caches
  reference();
  for (auto _ : state) {
    const bool measuredFirst = (random() & 1U) != 0;
    const double first = secondsOf(measuredFirst ? measured : reference);
    const double second = secondsOf(measuredFirst ? reference : measured);
    rounds.add(measuredFirst ? first : second, measuredFirst ? second : first);
    state.SetIterationTime(rounds.measured.back());
  }
  rounds.report(state);
}

int runAll(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  RatioTable table;
  benchmark::RunSpecifiedBenchmarks(&table);
  benchmark::Shutdown();
  return 0;
}

}  // namespace quillon::bench
