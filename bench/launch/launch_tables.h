// The tables of the launch benchmark.
#pragma once

#include <string>
#include <vector>

#include "bench/launch/contender.h"
#include "bench/launch/setup.h"

namespace quillon::bench {

void printMachine(const Setup& setup, int rounds);

// Prints the tables of one application: times, ratios, aims, the plug-in's calls and memory.
void printGroup(const std::string& title, const std::vector<Measured>& group);

void printMemory(const std::string& title, const std::vector<Measured>& group);

}  // namespace quillon::bench
