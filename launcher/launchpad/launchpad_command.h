// quillon launchpad --device DIR [--type T]... [--size N] [--refill-delay S]
// quillon launchpad stop|reload|status --device DIR
#pragma once

#include <CLI/App.hpp>

namespace quillon::launchpad {

void addLaunchpadCommand(CLI::App& app);

}  // namespace quillon::launchpad
