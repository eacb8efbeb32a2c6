#include "tests/system/commands/command_list.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/support/program.h"

namespace quillon::test {
namespace {

using Words = std::vector<std::string>;

// Adds the command and all commands below it.
void addCommands(std::vector<Command>& commands, Command command) {
  const Finished help = run(commandLine(command, {"--help"}));
  EXPECT_EQ(help.status, 0) << help.err;
  command.help = help.out;
  commands.push_back(command);
  for (const std::string& name : command.commands()) {
    Command below = command;
    below.words.push_back(name);
    addCommands(commands, std::move(below));
  }
}

}  // namespace

std::string Command::name() const {
  std::string joined;
  for (const std::string& word : words) {
    joined += (joined.empty() ? "" : " ") + word;
  }
  return joined;
}

Words Command::commands() const {
  Words names;
  bool isListing = false;
  for (const std::string& line : linesOf(help)) {
    isListing = line == "Commands:" || (isListing && !line.empty());
    if (isListing && line.starts_with("  ")) {
      names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
  }
  return names;
}

std::string Command::usage() const {
  const size_t start = help.find("usage: ");
  return help.substr(start, help.find('\n', start) - start);
}

Words commandLine(const Command& command, const Words& more) {
  Words words = {QUILLON_COMMAND};
  words.insert(words.end(), command.words.begin(), command.words.end());
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

const std::vector<Command>& allCommands() {
  static const std::vector<Command> all = [] {
    std::vector<Command> commands;
    addCommands(commands, {});
    return commands;
  }();
  return all;
}

}  // namespace quillon::test
