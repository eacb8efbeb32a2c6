// The text of --help.
#pragma once

#include <CLI/App.hpp>

#include <string>

namespace quillon::cli {

// Formats a command's help: what it does, its usage, and one line for each argument, option and
// subcommand.
class HelpFormatter : public CLI::FormatterBase {
 public:
  std::string make_help(const CLI::App* command, std::string name,
                        CLI::AppFormatMode mode) const override;
};

}  // namespace quillon::cli
