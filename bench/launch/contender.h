// Contenders: the ways to start an application that the benchmark times.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "bench/launch/memory.h"

namespace quillon::bench {

// The state of the launch pad's pool when a contender starts. kUnused: it does not use the launch
// pad. kOwn: a process that is prepared for the contender's application waits.
enum class Pool { kUnused, kFull, kEmpty, kOwn };

// The target for a contender: the maximum ratio of its time to that of a reference contender.
struct Aim {
  std::string reference;
  double maxRatio = 0;
};

// A launch request that an existing process sends, without starting a command.
struct PreparedRequest {
  std::filesystem::path asker;  // the program; empty: start the contender's command instead
  std::filesystem::path quillon;
  std::filesystem::path device;
};

struct Contender {
  std::string name;  // the same for all builds
  std::string appId;
  std::vector<std::string> command;
  std::vector<std::string> environment = {};  // NAME=VALUE, added to the benchmark's
  bool inside = true;                         // the device root
  bool usesBuild = true;                      // it starts a program of the measured build
  bool onTerminal = false;                    // its streams are a pseudo terminal, not pipes
  bool timesItself = false;                   // it prints names and microseconds
  std::size_t site = 0;                       // see Site
  Pool pool = Pool::kUnused;
  PreparedRequest request = {};
  std::vector<Aim> aims = {};
};

// The microseconds that a contender which times itself has printed: for each name, one value for
// each round.
using Calls = std::vector<std::pair<std::string, std::vector<double>>>;

// The measured values of one row: a contender, and the same of an older build.
struct Measured {
  std::string name;
  std::vector<double> seconds = {};  // for each round
  std::vector<double> older = {};    // of the older build, in the same rounds
  Calls calls = {};
  Calls olderCalls = {};
  std::vector<Memory> memory = {};
  std::vector<Aim> aims = {};
};

}  // namespace quillon::bench
