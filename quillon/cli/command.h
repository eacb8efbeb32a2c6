// What the subcommands of quillon share.
//
// A subcommand is one function, void addXCommand(CLI::App&), that declares its options and a
// callback; main.cc lists them. A callback that returns ends the command with status 0.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>

#include <string>
#include <utility>
#include <vector>

#include "quillon/base/report.h"

namespace quillon::cli {

// Ends the running subcommand: main returns `status`. Throws; call it from a callback only.
[[noreturn]] inline void endCommand(int status) { throw CLI::RuntimeError(status); }

// The value of a result. Reports a failure and ends the running subcommand.
template <typename T>
T valueOf(Expected<T> result) {
  if (!result) endCommand(report(result.error()));
  return std::move(*result);
}

// What stands behind the first "--" of the command line: the arguments of the program that a
// subcommand starts, untouched by the parser. Set by main before it parses.
inline std::vector<std::string>& programArguments() {
  static std::vector<std::string> arguments;
  return arguments;
}

}  // namespace quillon::cli
