// quillon launch --device DIR [OPTIONS] APPID [-- ARGS...]
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addLaunchCommand(CLI::App& app);

}  // namespace quillon::cli
