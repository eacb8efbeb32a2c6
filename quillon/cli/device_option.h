// The option that names the device root of a command; its default is in default_device.h. Every
// command declares the option with addDeviceOption(), except `launch`, which has a table of options
// (launch_options_table.h).
#pragma once

#include <filesystem>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/cli/front/default_device.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace quillon::cli {

// What a command reports if it has neither the option nor a default.
inline Failure noDevice() {
  return {"no device root is given", "give --device DIR or set QUILLON_DEVICE", kUsage};
}

// Adds --device DIR. Sets `directory` to the default, which the option replaces. The option is
// required if there is no default.
//
// The option does not use CLI11's support for environment variables: it assigns the variable's
// value to the options of all subcommands, also of those that are not on the command line.
CLI::Option* addDeviceOption(CLI::App& command, std::filesystem::path& directory);

// Moves the process into the device root. On failure, reports it and ends the subcommand; so call
// it from callbacks only. The machine paths `visible` stay visible inside.
void enterDevice(const std::filesystem::path& directory,
                 const std::vector<std::filesystem::path>& visible = {});

}  // namespace quillon::cli
