// quillon config: reads and changes the configuration store of a device root.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "config" with "get", "set" and "watch".
void addConfigCommand(CLI::App& app);

}  // namespace quillon::cli
