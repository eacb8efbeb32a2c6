// What the subcommands of quillon share.
//
// A subcommand is one function, void addXCommand(CLI::App&), that declares its options and a
// callback; main.cc lists them. A callback that returns ends the command with status 0.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Error.hpp>

namespace quillon {

// Ends the running subcommand: main returns `status`. Throws; call it from a callback only.
[[noreturn]] inline void endCommand(int status) { throw CLI::RuntimeError(status); }

}  // namespace quillon
