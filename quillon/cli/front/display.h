// The X server of a launch.
#pragma once

#include "quillon/host/application/options.h"

namespace quillon::cli {

// Lets an application find the X server that DISPLAY names as it would outside the device root, in
// which the home directory and "/tmp" are others. If only a socket in "/tmp" leads to the server,
// warns the user that the launch does not show it.
void prepareDisplay(const host::LaunchOptions& options);

}  // namespace quillon::cli
