#include "quillon/cli/launch_command.h"

#include <memory>

#include "quillon/cli/command.h"
#include "quillon/cli/launch_parser.h"
#include "quillon/cli/run_launch.h"
#include "quillon/host/launch.h"
#include "quillon/timeline/timed_launch.h"

namespace quillon::cli {

void addLaunchCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("launch", "Launch an installed application");
  const auto options = std::make_shared<host::LaunchOptions>();
  addLaunchOptions(*command, *options);
  command->footer("The application's arguments follow --. Its exit status is that of the command.");
  command->callback([options] {
    options->arguments = programArguments();
    const bool isTimed = !options->timeline.empty();
    endCommand(runLaunch(*options, isTimed ? timeline::launchWithTimeline : host::launch));
  });
}

}  // namespace quillon::cli
