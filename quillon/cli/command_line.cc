#include "quillon/cli/command_line.h"

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/commands.h"
#include "quillon/cli/help.h"
#include "quillon/cli/manual.h"
#include "quillon/cli/parse_failure.h"
#include "quillon/cli/run_command.h"

namespace quillon::cli {
namespace {

constexpr char kVariables[] =
    "Variables:\n"
    "  QUILLON_DEVICE  Default of --device; yours is ~/.local/share/quillon/device\n"
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

// Returns the word after the first argument of `command` that is no option: the arguments after it
// belong to the application.
Words::const_iterator endOfOwnArguments(const CLI::App& command, const Words& words) {
  auto word = words.begin() + 1;
  while (word != words.end() && word->starts_with('-')) {
    const CLI::Option* const option = command.get_option_no_throw(*word);
    const bool hasValue = option != nullptr && option->get_items_expected_max() != 0;
    word += hasValue && word + 1 != words.end() ? 2 : 1;
  }
  return word == words.end() ? word : word + 1;
}

// Returns the arguments that the parser interprets, without the program's name, in the reversed
// order that CLI11 expects: those before the first "--" or, for `quillon run`, up to the assembly.
// Stores the others in programArguments().
Words takeArguments(const CLI::App& app, int argc, char** argv) {
  const Words all(argv + 1, argv + argc);
  const auto run =
      app.get_subcommands([](const CLI::App* each) { return each->get_name() == kRunCommand; });
  auto end = std::find(all.begin(), all.end(), "--");
  if (!run.empty() && !all.empty() && all.front() == kRunCommand) {
    end = endOfOwnArguments(*run.front(), all);
  }
  if (end != all.end()) {
    programArguments().assign(*end == "--" ? end + 1 : end, all.end());
  }
  return {std::make_reverse_iterator(end), all.rend()};
}

// Prints help or version and returns 0, or reports in one line why the parser refused the
// arguments.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    return app.exit(error);
  }
  return report(parseFailure(app, error));
}

void declare(CLI::App& app, std::span<const Command> commands, const std::string& first) {
  app.name("quillon");
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", "Print this help");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION, "Print the version");
  app.require_subcommand(1);
  addCommands(app, commands, first);
  app.footer(kVariables);  // not before, since the commands would inherit it
}

int complete(const CLI::App& app, const Words& words, const ValuesOf& valuesOf) {
  const Descriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
  dup2(nothing.get(), STDERR_FILENO);
  for (const Row& row : completions(app, words, valuesOf)) {
    std::cout << row.name << (row.text.empty() ? "" : "\t") << row.text << '\n';
  }
  return kSuccess;
}

int printManual(const CLI::App& app, const Words& words) {
  const auto command = app.get_subcommands(
      [&](const CLI::App* each) { return !words.empty() && each->get_name() == words.front(); });
  std::cout << manualPage(app, command.empty() ? app : *command.front());
  return kSuccess;
}

int runCommand(int argc, char** argv, std::span<const Command> commands, const ValuesOf& valuesOf) {
  CLI::App app{"Run managed TV applications on a workstation the way a device does."};
  const Words words(argv + std::min(argc, 2), argv + argc);
  if (argc > 1 && isGenerator(argv[1])) {
    declare(app, commands, words.empty() ? "" : words.front());
    return argv[1] == kCompleteCommand ? complete(app, words, valuesOf) : printManual(app, words);
  }
  declare(app, commands, argc > 1 ? argv[1] : "");
  try {
    app.parse(takeArguments(app, argc, argv));
  } catch (const CLI::RuntimeError& end) {
    return end.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return endOfParse(app, error);
  }
  return kSuccess;
}

}  // namespace

int runCommandLine(int argc, char** argv, std::span<const Command> commands,
                   const ValuesOf& valuesOf) {
  const int status = runCommand(argc, argv, commands, valuesOf);
  if (std::cout.flush()) {
    return status;
  }
  const int failed = report(outputFailure());
  return status != kSuccess ? status : failed;
}

}  // namespace quillon::cli
