// quillon launchpad --device DIR [--type T]... [--size N] [--refill-delay S]
// quillon launchpad stop|reload|status --device DIR
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addLaunchpadCommand(CLI::App& app);

}  // namespace quillon::cli
