// quillon ps and quillon stop: the applications that run in a device root.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addPsCommand(CLI::App& app);
void addStopCommand(CLI::App& app);

}  // namespace quillon::cli
