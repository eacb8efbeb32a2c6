#include "quillon/cli/run_launch.h"

#include "quillon/base/terminal.h"
#include "quillon/cli/detached_launch.h"
#include "quillon/cli/front/display.h"
#include "quillon/cli/front/prepared_launch.h"

namespace quillon::cli {

using host::LaunchOptions;

int runLaunch(const LaunchOptions& options, int (*launchHere)(const LaunchOptions& options)) {
  keepTerminal();
  if (options.detach && !options.onStart) {
    return launchDetached(options, [launchHere](const LaunchOptions& detached) {
      return runLaunch(detached, launchHere);
    });
  }
  if (!options.plan) {
    prepareDisplay(options);
  }
  if (const auto ended = launchPrepared(options, workstation::currentLog())) {
    return *ended;
  }
  return launchHere(options);
}

}  // namespace quillon::cli
