// Helpers for the subcommands of quillon.
//
// A subcommand is one function, void addXCommand(CLI::App&), that declares its options and a
// callback; commands.cc lists them. If the callback returns, the command ends with status 0.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "quillon/base/report.h"

namespace quillon::cli {

// Ends the running subcommand with the exit status `status`. Throws, so call it from callbacks
// only.
[[noreturn]] inline void endCommand(int status) { throw CLI::RuntimeError(status); }

// Returns the value of `result`. If it is a failure, reports it and ends the running subcommand.
template <typename T>
T valueOf(Expected<T> result) {
  if (!result) {
    endCommand(report(result.error()));
  }
  if constexpr (!std::is_void_v<T>) {
    return std::move(*result);
  }
}

// The arguments after the first "--" of the command line, which the parser does not interpret:
// those of the program or application that the subcommand starts. Set before the command line is
// parsed.
inline std::vector<std::string>& programArguments() {
  static std::vector<std::string> arguments;
  return arguments;
}

}  // namespace quillon::cli
