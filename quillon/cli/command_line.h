// Runs a command line with the subcommands of one library.
#pragma once

#include <span>

namespace CLI {
class App;
}

namespace quillon::cli {

struct Command {
  const char* name;
  void (*add)(CLI::App& app);  // declares the command's options and its callback
};

// Parses a command line, runs the command that it names and returns the exit status.
int runCommandLine(int argc, char** argv, std::span<const Command> commands);

}  // namespace quillon::cli
