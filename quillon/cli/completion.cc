#include "quillon/cli/completion.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "quillon/cli/device_option.h"
#include "quillon/cli/run_command.h"

namespace quillon::cli {
namespace {

// What the words before the last one have determined.
struct Position {
  const CLI::App* command = nullptr;
  const CLI::Option* option = nullptr;  // whose value is the last word
  std::size_t arguments = 0;            // that precede the last word
  bool isApplications = false;          // the last word is an argument of the application
  std::string device = defaultDevice();
};

const CLI::App* subcommandOf(const CLI::App& command, const std::string& name) {
  const auto found =
      command.get_subcommands([&](const CLI::App* each) { return each->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

std::vector<const CLI::Option*> argumentsOf(const CLI::App& command) {
  return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

void readWord(Position& position, const std::string& word) {
  if (position.option != nullptr) {
    position.device = position.option->check_name(kDeviceOption) ? word : position.device;
    position.option = nullptr;
  } else if (word == "--") {
    position.isApplications = true;
  } else if (word.starts_with('-')) {
    const CLI::Option* const option = position.command->get_option_no_throw(word);
    const bool hasValue = option != nullptr && !placeholderOf(*option).empty();
    position.option = hasValue ? option : nullptr;
  } else if (const CLI::App* const inner = subcommandOf(*position.command, word)) {
    position.command = inner;
    position.arguments = 0;
  } else {
    ++position.arguments;
    position.isApplications = position.command->get_name() == kRunCommand;
  }
}

std::vector<Row> optionRows(const CLI::App& command) {
  std::vector<Row> rows;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      rows.push_back({"--" + name, option->get_description()});
    }
  }
  return rows;
}

std::vector<Row> commandRows(const CLI::App& command) {
  std::vector<Row> rows;
  for (const CLI::App* each : listedCommands(command)) {
    rows.push_back({each->get_name(), each->get_description()});
  }
  return rows;
}

std::vector<Row> valuesFor(const CLI::Option& option, const Position& position,
                           const ValuesOf& valuesOf) {
  std::vector<Row> rows;
  for (std::string& value : valuesOf(placeholderOf(option), position.device)) {
    rows.push_back({std::move(value), {}});
  }
  return rows;
}

std::vector<Row> candidates(const Position& position, const std::string& last,
                            const ValuesOf& valuesOf) {
  if (position.isApplications) {
    return {};
  }
  if (position.option != nullptr) {
    return valuesFor(*position.option, position, valuesOf);
  }
  if (last.starts_with('-')) {
    return optionRows(*position.command);
  }
  const auto arguments = argumentsOf(*position.command);
  if (position.arguments < arguments.size()) {
    return valuesFor(*arguments[position.arguments], position, valuesOf);
  }
  return position.arguments == 0 ? commandRows(*position.command) : std::vector<Row>();
}

}  // namespace

std::vector<Row> completions(const CLI::App& app, const Words& words, const ValuesOf& valuesOf) {
  Position position;
  position.command = &app;
  if (words.empty()) {
    return commandRows(app);
  }
  for (auto word = words.begin(); word != words.end() - 1; ++word) {
    readWord(position, *word);
  }
  std::vector<Row> rows = candidates(position, words.back(), valuesOf);
  std::erase_if(rows, [&](const Row& row) { return !row.name.starts_with(words.back()); });
  return rows;
}

}  // namespace quillon::cli
