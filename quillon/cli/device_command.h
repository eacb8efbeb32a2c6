// quillon device init DIR [--framework DIR|none]
// quillon device shell DIR [--writable PATH]... [-- COMMAND ARGS...]
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addDeviceCommand(CLI::App& app);

}  // namespace quillon::cli
