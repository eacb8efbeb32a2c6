// The quillon command: every subcommand in one list.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "launcher/launch_command.h"
#include "launcher/launchpad/launchpad_command.h"
#include "launcher/timeline/timeline_command.h"
#include "tools/command.h"
#include "tools/config_command.h"
#include "tools/device_command.h"
#include "tools/package_command.h"
#include "tools/partner_command.h"
#include "tools/report.h"
#include "tools/validator_command.h"
#include "tools/zone_command.h"

namespace {

void addCommands(CLI::App& app) {
  quillon::addDeviceCommand(app);
  quillon::addPackageCommand(app);
  quillon::addConfigCommand(app);
  quillon::launcher::addLaunchCommand(app);
  quillon::launchpad::addLaunchpadCommand(app);
  quillon::launcher::addTimelineCommand(app);
  quillon::addZoneCommand(app);
  quillon::addPartnerCommand(app);
  quillon::addValidatorCommand(app);
}

// The arguments before the first "--", the program's name left out and in the reversed order in
// which CLI11 takes them; the others are kept for programArguments().
std::vector<std::string> takeArguments(int argc, char** argv) {
  const std::vector<std::string> all(argv + 1, argv + argc);
  const auto dashes = std::find(all.begin(), all.end(), "--");
  if (dashes != all.end()) quillon::programArguments().assign(dashes + 1, all.end());
  return {std::make_reverse_iterator(dashes), all.rend()};
}

// Help and version end with 0; what CLI11 could not understand becomes one line.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  return quillon::report({error.what(), "see quillon --help"}, quillon::kUsage);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Runs and tends managed applications on a workstation as a device would."};
  app.name("quillon");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION);
  app.require_subcommand(1);
  addCommands(app);
  try {
    app.parse(takeArguments(argc, argv));
  } catch (const CLI::RuntimeError& end) {
    return end.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return endOfParse(app, error);
  }
  return quillon::kSuccess;
}
