// `quillon launch`: through the launch pad if one runs and can serve the launch, else in this
// process.
#pragma once

#include "quillon/host/application/options.h"

namespace quillon::cli {

// Launches the application and returns the status to end with; see host::launch(). Under --verbose
// it also reports which way the launch took, and why.
//
// launchHere  launches in this process: host::launch() or timeline::launchWithTimeline()
int runLaunch(const host::LaunchOptions& options,
              int (*launchHere)(const host::LaunchOptions& options));

}  // namespace quillon::cli
