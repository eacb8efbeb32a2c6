// quillon device init DIR [--framework DIR|none]
// quillon device shell DIR [--writable PATH]... [-- COMMAND ARGS...]
#pragma once

namespace CLI {
class App;
}

namespace quillon {

void addDeviceCommand(CLI::App& app);

}  // namespace quillon
