// What the launch benchmark prints.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/surroundings.h"

namespace quillon::bench {

void printMachine(const Surroundings& surroundings, int rounds);

// Medians, the tenth and ninetieth percentile, and the medians of the rounds' ratios to the stock
// host, the bare host and the direct launch.
void printTimes(const std::string& title, const std::vector<Measured>& group);

// What the contenders are meant to cost, beside what they do.
void printAims(const std::string& title, const std::vector<Measured>& group);

void printMemory(const std::string& title, const std::vector<Measured>& group);

// The plug-in's calls, each and together, beside the stock host's resolution; microseconds.
void printCalls(const std::string& title,
                const std::vector<std::pair<std::string, std::vector<double>>>& calls,
                const std::vector<double>& resolution);

}  // namespace quillon::bench
