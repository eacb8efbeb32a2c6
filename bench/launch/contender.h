// What is timed: the ways to start an application.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/memory.h"

namespace quillon::bench {

// What the launch pad has ready when a contender is started. kUnused: it asks no launch pad.
enum class Pool { kUnused, kFull, kEmpty };

// What a contender is meant to cost at most, as a multiple of another one's time.
struct Aim {
  std::string beside;
  double atMost = 0;
};

// A launch that is asked for by a process which is there already.
struct PendingLaunch {
  std::filesystem::path quillon;
  std::filesystem::path device;
  std::string appId;  // empty: the contender's command is started instead
};

struct Contender {
  std::string name;
  std::vector<std::string> command;
  std::vector<std::string> environment = {};  // NAME=VALUE, over that of the bench
  bool inside = true;                         // the device root
  Pool pool = Pool::kUnused;
  PendingLaunch asking = {};
  std::vector<Aim> aims = {};
};

// The measured values of one contender.
struct Measured {
  std::string name;
  std::vector<double> seconds = {};  // of each round
  std::vector<Memory> memory = {};
  std::vector<Aim> aims = {};
};

}  // namespace quillon::bench
