// The device root that a command works in: --device DIR, else the environment variable
// QUILLON_DEVICE. Every command declares the option with addDeviceOption(), except `launch`, whose
// table (launch_options_table.h) uses the constants below.
//
// Included by the fast path of launches: no header of the full parser's library may be included
// here.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace quillon::cli {

inline constexpr char kDeviceOption[] = "--device";
inline constexpr char kDeviceVariable[] = "QUILLON_DEVICE";
inline constexpr char kDeviceHelp[] = "Device root; default: $QUILLON_DEVICE";
inline constexpr char kDeviceValue[] = "DIR";

// Returns the value of an environment variable; empty if it is not set.
inline std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// What a command reports if it has neither the option nor the variable.
inline Failure noDevice() {
  return {"no device root is given", "give --device DIR or set QUILLON_DEVICE", kUsage};
}

// Adds --device DIR. Sets `directory` to the value of the variable, which the option replaces. The
// option is required if the variable is not set.
//
// The option does not use CLI11's support for environment variables: it assigns the variable's
// value to the options of all subcommands, also of those that are not on the command line.
CLI::Option* addDeviceOption(CLI::App& command, std::filesystem::path& directory);

// Moves the process into the device root. On failure, reports it and ends the subcommand; so call
// it from callbacks only. The machine paths `visible` stay visible inside.
void enterDevice(const std::filesystem::path& directory,
                 const std::vector<std::filesystem::path>& visible = {});

}  // namespace quillon::cli
