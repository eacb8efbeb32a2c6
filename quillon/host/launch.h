// One launch, from the command line to the application's end.
#pragma once

#include "quillon/host/application/options.h"

namespace quillon::host {

// Enters the device root and launches an application in this process, or prints the plan. Returns
// the application's exit status, or one of tools/exit_status.h after one line on standard error.
//
// The process must have one thread. It may also end inside: the plug-in ends it with status 0 where
// it refuses the application, and an exception that the application does not catch ends it with
// SIGABRT. What it did to the process (namespace, name, capabilities, runtime) stays, so a process
// launches once.
int launch(const LaunchOptions& options);

}  // namespace quillon::host
