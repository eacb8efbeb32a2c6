// quillon launch --device DIR [OPTIONS] APPID [-- ARGS...]
#pragma once

#include <CLI/App.hpp>

namespace quillon::launcher {

void addLaunchCommand(CLI::App& app);

}  // namespace quillon::launcher
