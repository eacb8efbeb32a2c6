// Contenders: the ways to start an application that the benchmark times.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/memory.h"

namespace quillon::bench {

// The state of the launch pad's pool when a contender starts. kUnused: it does not use the launch
// pad.
enum class Pool { kUnused, kFull, kEmpty };

// The target for a contender: the maximum ratio of its time to that of a reference contender.
struct Aim {
  std::string reference;
  double maxRatio = 0;
};

// A launch request that an existing process sends, without starting a command.
struct PreparedRequest {
  std::filesystem::path quillon;
  std::filesystem::path device;
  std::string appId;  // empty: start the contender's command instead
};

struct Contender {
  std::string name;
  std::vector<std::string> command;
  std::vector<std::string> environment = {};  // NAME=VALUE, added to the benchmark's
  bool inside = true;                         // the device root
  Pool pool = Pool::kUnused;
  PreparedRequest request = {};
  std::vector<Aim> aims = {};
};

// The measured values of one contender.
struct Measured {
  std::string name;
  std::vector<double> seconds = {};  // for each round
  std::vector<Memory> memory = {};
  std::vector<Aim> aims = {};
};

}  // namespace quillon::bench
