// Two pieces of work measured side by side: one round runs both, in an order drawn anew for each
// round, so that whatever else the machine does falls on both alike. What is reported is the ratio.
#pragma once

#include <benchmark/benchmark.h>

#include <functional>

namespace quillon::bench {

// Runs `measured` and `reference` once each per iteration of `state`, which must use manual time.
//
// The benchmark's time is that of `measured`. Its counters are the median, the tenth and the
// ninetieth percentile of the rounds' ratios measured / reference, and both medians in seconds.
void runPaired(benchmark::State& state, const std::function<void()>& measured,
               const std::function<void()>& reference);

// Prints the machine, then runs the benchmarks that the command line asks for. Returns main's
// result.
int runAll(int argc, char** argv);

}  // namespace quillon::bench
