#include "quillon/cli/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/help.h"
#include "quillon/cli/parse_failure.h"

namespace quillon::cli {
namespace {

constexpr char kVariables[] =
    "Variables:\n"
    "  QUILLON_DEVICE  Default of --device\n"
    "  QUILLON_LOG     Log: terminal, journal, file:PATH, json:PATH or none\n"
    "  QUILLON_TRACE   File to write the trace events of a launch to\n"
    "\n"
    "quillon COMMAND --help describes a command.";

// Adds the command named `first`, or all commands if there is no such command. Adding only one
// saves the time to build the options of the others.
void addCommands(CLI::App& app, std::span<const Command> commands, const std::string& first) {
  const auto requested = std::find_if(commands.begin(), commands.end(),
                                      [&](const Command& each) { return each.name == first; });
  if (requested != commands.end()) {
    return requested->add(app);
  }
  for (const Command& command : commands) {
    command.add(app);
  }
}

// Returns the arguments before the first "--", without the program's name, in the reversed order
// that CLI11 expects. Stores the arguments after it in programArguments().
std::vector<std::string> takeArguments(int argc, char** argv) {
  const std::vector<std::string> all(argv + 1, argv + argc);
  const auto dashes = std::find(all.begin(), all.end(), "--");
  if (dashes != all.end()) {
    programArguments().assign(dashes + 1, all.end());
  }
  return {std::make_reverse_iterator(dashes), all.rend()};
}

// Prints help or version and returns 0, or reports in one line why the parser refused the
// arguments.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    return app.exit(error);
  }
  return report(parseFailure(app, error));
}

}  // namespace

int runCommandLine(int argc, char** argv, std::span<const Command> commands) {
  CLI::App app{"Run managed TV applications on a workstation the way a device does."};
  app.name("quillon");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION, "Print the version");
  app.require_subcommand(1);
  addCommands(app, commands, argc > 1 ? argv[1] : "");
  app.footer(kVariables);  // not before, since the commands would inherit it
  try {
    app.parse(takeArguments(argc, argv));
  } catch (const CLI::RuntimeError& end) {
    return end.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return endOfParse(app, error);
  }
  return kSuccess;
}

}  // namespace quillon::cli
