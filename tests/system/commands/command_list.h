// The commands of the program, as its own help lists them.
#pragma once

#include <string>
#include <vector>

namespace quillon::test {

struct Command {
  std::vector<std::string> words;  // "package", "install"
  std::string help;

  [[nodiscard]] std::string name() const;
  // Names of the subcommands.
  [[nodiscard]] std::vector<std::string> commands() const;
  [[nodiscard]] std::string usage() const;
  // Whether the command does something without a subcommand.
  [[nodiscard]] bool runs() const { return !usage().ends_with(" COMMAND"); }
};

// Returns the program, the command's words and `more`.
std::vector<std::string> commandLine(const Command& command, const std::vector<std::string>& more);

// The program itself, which has no words, and all commands below it.
const std::vector<Command>& allCommands();

}  // namespace quillon::test
