// A launch through the launch pad, where that is the same as a launch in this process.
#pragma once

#include <optional>

#include "launcher/launch_options.h"

namespace quillon::launcher {

// The status to end with where the launch pad carried the launch out; empty where this process has
// to, which is as it was then. Says which under --verbose.
std::optional<int> launchPrepared(const LaunchOptions& options);

}  // namespace quillon::launcher
