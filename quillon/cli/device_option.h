// The device root that a command works in: --device DIR, else that of the environment variable
// QUILLON_DEVICE, else the user's own. Every command declares the option with addDeviceOption(),
// except `launch`, whose table (launch_options_table.h) uses the constants below.
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
inline constexpr char kDeviceHelp[] = "Device root; default: $QUILLON_DEVICE or yours";
inline constexpr char kDeviceValue[] = "DIR";

// Returns the value of an environment variable; empty if it is not set.
inline std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The device root of users who have chosen none, as the XDG Base Directory Specification places
// data. Empty if HOME is not set either.
inline std::filesystem::path deviceOfUser() {
  const std::filesystem::path data = variable("XDG_DATA_HOME");
  if (data.is_absolute()) {
    return data / "quillon/device";
  }
  const std::filesystem::path home = variable("HOME");
  return home.is_absolute() ? home / ".local/share/quillon/device" : std::filesystem::path();
}

// The device root of a command without the option. Empty if there is none.
inline std::filesystem::path defaultDevice() {
  const std::string chosen = variable(kDeviceVariable);
  return chosen.empty() ? deviceOfUser() : std::filesystem::path(chosen);
}

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
