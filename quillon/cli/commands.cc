#include "quillon/cli/commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/config_command.h"
#include "quillon/cli/device_command.h"
#include "quillon/cli/launch_command.h"
#include "quillon/cli/launchpad_command.h"
#include "quillon/cli/package_command.h"
#include "quillon/cli/partner_command.h"
#include "quillon/cli/timeline_command.h"
#include "quillon/cli/validator_command.h"
#include "quillon/cli/zone_command.h"

namespace {

struct Command {
  const char* name;
  void (*add)(CLI::App& app);
};

constexpr Command kCommands[] = {{"device", quillon::cli::addDeviceCommand},
                                 {"package", quillon::cli::addPackageCommand},
                                 {"config", quillon::cli::addConfigCommand},
                                 {"launch", quillon::cli::addLaunchCommand},
                                 {"launchpad", quillon::cli::addLaunchpadCommand},
                                 {"timeline", quillon::cli::addTimelineCommand},
                                 {"zone", quillon::cli::addZoneCommand},
                                 {"partner", quillon::cli::addPartnerCommand},
                                 {"validator", quillon::cli::addValidatorCommand}};

// The command that is asked for first of all arguments, else all of them: a launch does not wait
// for the other commands' options.
void addCommands(CLI::App& app, const std::string& first) {
  const auto* const asked = std::find_if(std::begin(kCommands), std::end(kCommands),
                                         [&](const Command& each) { return each.name == first; });
  if (asked != std::end(kCommands)) return asked->add(app);
  for (const Command& command : kCommands) command.add(app);
}

// The arguments before the first "--", the program's name left out and in the reversed order in
// which CLI11 takes them; the others are kept for programArguments().
std::vector<std::string> takeArguments(int argc, char** argv) {
  const std::vector<std::string> all(argv + 1, argv + argc);
  const auto dashes = std::find(all.begin(), all.end(), "--");
  if (dashes != all.end()) quillon::cli::programArguments().assign(dashes + 1, all.end());
  return {std::make_reverse_iterator(dashes), all.rend()};
}

// Help and version end with 0; what CLI11 could not understand becomes one line.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  return quillon::report({error.what(), "see quillon --help", quillon::kUsage});
}

}  // namespace

int quillon_commands(int argc, char** argv) {
  CLI::App app{"Runs and tends managed applications on a workstation as a device would."};
  app.name("quillon");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION);
  app.require_subcommand(1);
  addCommands(app, argc > 1 ? argv[1] : "");
  try {
    app.parse(takeArguments(argc, argv));
  } catch (const CLI::RuntimeError& end) {
    return end.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return endOfParse(app, error);
  }
  return quillon::kSuccess;
}
