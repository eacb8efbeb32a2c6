// `quillon launch --detach`: the command ends when the application has started.
#pragma once

#include <functional>

#include "quillon/host/application/options.h"

namespace quillon::cli {

// Runs `launch` in a child process, without the caller's terminal and standard streams: standard
// input is empty, and output goes to the application's log file (application_log.h). So does the
// log, unless QUILLON_LOG is set. Returns 0 when the application has started. If it does not, it
// returns the exit status of the launch, whose reports go to the caller's standard error.
//
// The child stays for as long as the application, also if that runs in a prepared process, which
// ends with its client.
int launchDetached(const host::LaunchOptions& options,
                   const std::function<int(const host::LaunchOptions&)>& launch);

}  // namespace quillon::cli
