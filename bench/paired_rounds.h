// Measures two operations in pairs: each round runs both, in a new random order, so that other load
// of the machine affects both. Reports the ratio.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

namespace quillon::bench {

// Runs `measured` and `reference` once each per iteration of `state`, which must use manual time.
//
// The benchmark's time is that of `measured`. Its counters are the median, the 10th and the 90th
// percentile of each round's ratio measured / reference, and both medians in seconds.
void runPaired(benchmark::State& state, const std::function<void()>& measured,
               const std::function<void()>& reference);

// Prints the machine, then runs the benchmarks that the command line selects. Returns the result of
// main.
int runAll(int argc, char** argv);

}  // namespace quillon::bench
