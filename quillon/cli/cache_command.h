// quillon cache show | clear
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "cache" with "show" and "clear", for the lists that the plug-in keeps in a device root.
void addCacheCommand(CLI::App& app);

}  // namespace quillon::cli
