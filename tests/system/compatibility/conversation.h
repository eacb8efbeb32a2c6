// Runs a program, and does something each time that it has printed a certain text.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {

// One turn of a conversation. The texts of successive steps must appear in this order.
struct Step {
  std::string awaited;     // in standard output; empty: do not wait
  std::string typed = {};  // to standard input
  int signal = 0;          // to the program; 0: none
  bool traces = false;     // attach a tracing tool to the process that standard output names
};

struct Conversation {
  std::vector<std::string> command;
  std::vector<std::string> environment;  // "NAME=VALUE", in addition to this process's
  std::filesystem::path directory;       // working directory
  std::vector<Step> steps;
  bool onTerminal = false;  // all three standard streams are one terminal
  // Returns a line about an attempt to trace the process, which is appended to the output.
  std::function<std::string(pid_t)> trace;
};

// Returns when the program has closed its standard output and ended. Standard input ends after the
// last step, unless that sends a signal. A program that does neither for a minute is killed.
CommandResult hold(const Conversation& conversation);

}  // namespace quillon::test
