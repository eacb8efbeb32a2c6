// Runs `quillon launch`: in a prepared process if a launch pad can serve it, else in this process.
#pragma once

#include "quillon/host/application/options.h"

namespace quillon::cli {

// Launches the application and returns the exit status; see host::launch(). With --verbose it also
// reports which of the two processes runs the launch, and why.
//
// launchHere  launches in this process: host::launch() or timeline::launchWithTimeline()
int runLaunch(const host::LaunchOptions& options,
              int (*launchHere)(const host::LaunchOptions& options));

}  // namespace quillon::cli
