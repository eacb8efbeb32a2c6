// Runs a command line with the subcommands of one library.
#pragma once

#include <span>

#include "quillon/cli/completion.h"

namespace quillon::cli {

struct Command {
  const char* name;
  void (*add)(CLI::App& app);  // declares the command's options and its callback
};

// Parses a command line, runs the command that it names and returns the exit status. Also answers
// the generators of commands.h.
int runCommandLine(int argc, char** argv, std::span<const Command> commands,
                   const ValuesOf& valuesOf);

}  // namespace quillon::cli
