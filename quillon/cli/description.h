// What is known of a command, for its help text, its manual page and the completion of its words.
#pragma once

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace quillon::cli {

struct Row {
  std::string name;
  std::string text;
};

struct Section {
  std::string title;
  std::vector<Row> rows;
};

// The commands below `command` that its help lists.
std::vector<const CLI::App*> listedCommands(const CLI::App& command);

// The commands, arguments and options, without empty sections. An argument that is also an option
// has one row.
std::vector<Section> sectionsOf(const CLI::App& command);

// What follows the command's name: "[OPTIONS] APPID [-- ARGUMENTS]".
std::string usageOf(const CLI::App& command);

// The name of the option's value in the help: "DIR". Empty if the option is a flag. An argument's
// is its own name.
std::string placeholderOf(const CLI::Option& option);

}  // namespace quillon::cli
