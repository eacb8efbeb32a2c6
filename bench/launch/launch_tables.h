// The tables of the launch benchmark.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/setup.h"

namespace quillon::bench {

void printMachine(const Setup& setup, int rounds);

// Prints medians, the 10th and 90th percentile, and the medians of each round's ratios to the stock
// host, the bare host and the direct launch.
void printTimes(const std::string& title, const std::vector<Measured>& group);

// Prints the targets of the contenders and their measured ratios.
void printAims(const std::string& title, const std::vector<Measured>& group);

void printMemory(const std::string& title, const std::vector<Measured>& group);

// Prints the times of the plug-in's calls, their sum, and the stock host's resolution, in
// microseconds.
void printCalls(const std::string& title,
                const std::vector<std::pair<std::string, std::vector<double>>>& calls,
                const std::vector<double>& resolution);

}  // namespace quillon::bench
