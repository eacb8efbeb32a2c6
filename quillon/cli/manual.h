// The manual page of a command, in the language of man(7).
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace quillon::cli {

// The page of `command`, a command of `app` or `app` itself. It says what --help says, of the
// command and of its subcommands.
std::string manualPage(const CLI::App& app, const CLI::App& command);

}  // namespace quillon::cli
