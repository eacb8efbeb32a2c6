// The --device option of subcommands that work inside a device root.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds --device DIR, which QUILLON_DEVICE may give instead.
void addDeviceOption(CLI::App& command, std::string& directory);

// Moves the process into the device root, or reports why not and ends the subcommand. Call it from
// a callback only. `visible` are machine paths that stay visible inside.
void enterDevice(const std::string& directory,
                 const std::vector<std::filesystem::path>& visible = {});

}  // namespace quillon::cli
