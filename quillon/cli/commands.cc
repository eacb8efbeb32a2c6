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

// Adds the command named `first`, or all commands if there is no such command. Adding only one
// saves the time to build the options of the others.
void addCommands(CLI::App& app, const std::string& first) {
  const auto* const requested =
      std::find_if(std::begin(kCommands), std::end(kCommands),
                   [&](const Command& each) { return each.name == first; });
  if (requested != std::end(kCommands)) {
    return requested->add(app);
  }
  for (const Command& command : kCommands) {
    command.add(app);
  }
}

// Returns the arguments before the first "--", without the program's name, in the reversed order
// that CLI11 expects. Stores the arguments after it in programArguments().
std::vector<std::string> takeArguments(int argc, char** argv) {
  const std::vector<std::string> all(argv + 1, argv + argc);
  const auto dashes = std::find(all.begin(), all.end(), "--");
  if (dashes != all.end()) {
    quillon::cli::programArguments().assign(dashes + 1, all.end());
  }
  return {std::make_reverse_iterator(dashes), all.rend()};
}

// Prints help or version and returns 0, or reports a parse error in one line.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    return app.exit(error);
  }
  return quillon::report({error.what(), "see quillon --help", quillon::kUsage});
}

}  // namespace

int quillon_commands(int argc, char** argv) {
  CLI::App app{"Run managed TV applications on a workstation the way a device does."};
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
