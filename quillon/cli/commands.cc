#include "quillon/cli/commands.h"

#include <CLI/App.hpp>

#include "quillon/cli/cache_command.h"
#include "quillon/cli/command_line.h"
#include "quillon/cli/completion_values.h"
#include "quillon/cli/config_command.h"
#include "quillon/cli/device_command.h"
#include "quillon/cli/doctor_command.h"
#include "quillon/cli/launch_command.h"
#include "quillon/cli/launchpad_command.h"
#include "quillon/cli/logs_command.h"
#include "quillon/cli/package_command.h"
#include "quillon/cli/partner_command.h"
#include "quillon/cli/ps_command.h"
#include "quillon/cli/run_command.h"
#include "quillon/cli/timeline_command.h"
#include "quillon/cli/validator_command.h"
#include "quillon/cli/zone_command.h"

namespace quillon::cli {
namespace {

// The commands of the other library, for the list in `quillon --help`. Never run from here: for a
// command line that starts with one of them, the program loads the other library.
void listPartner(CLI::App& app) { app.add_subcommand("partner", kPartnerSummary); }
void listValidator(CLI::App& app) { app.add_subcommand("validator", kValidatorSummary); }

// In the order of the help text.
constexpr Command kCommands[] = {{kRunCommand, addRunCommand},
                                 {"launch", addLaunchCommand},
                                 {"ps", addPsCommand},
                                 {"stop", addStopCommand},
                                 {"logs", addLogsCommand},
                                 {"package", addPackageCommand},
                                 {"device", addDeviceCommand},
                                 {"config", addConfigCommand},
                                 {"cache", addCacheCommand},
                                 {"doctor", addDoctorCommand},
                                 {"launchpad", addLaunchpadCommand},
                                 {"zone", addZoneCommand},
                                 {"timeline", addTimelineCommand},
                                 {"partner", listPartner},
                                 {"validator", listValidator}};

}  // namespace
}  // namespace quillon::cli

int quillon_commands(int argc, char** argv) {
  return quillon::cli::runCommandLine(argc, argv, quillon::cli::kCommands,
                                      quillon::cli::completionValues);
}
