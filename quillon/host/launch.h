// A direct launch: the whole launch in the calling process, up to the application's end.
#pragma once

#include "quillon/host/application/options.h"

namespace quillon::host {

// Enters the device root, then launches the application in this process or, with --plan, prints the
// plan. Returns the application's exit status, or prints one line on standard error and returns a
// status of quillon/base/exit_status.h.
//
// The process must have one thread. It may also end without a return from this function: the
// plug-in ends it with status 0 if it refuses the application, and an exception that the
// application does not catch ends it with SIGABRT. Changes to the process (mount namespace, name,
// capabilities, runtime) are permanent, so a process can launch only once.
int launch(const LaunchOptions& options);

}  // namespace quillon::host
