// The --device option of subcommands that work inside a device root.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds --device DIR, whose default is the environment variable QUILLON_DEVICE.
void addDeviceOption(CLI::App& command, std::string& directory);

// Moves the process into the device root. On failure, reports it and ends the subcommand; so call
// it from callbacks only. The machine paths `visible` stay visible inside.
void enterDevice(const std::string& directory,
                 const std::vector<std::filesystem::path>& visible = {});

}  // namespace quillon::cli
