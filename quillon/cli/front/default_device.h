// The device root that a command works in: --device DIR, else that of the environment variable
// QUILLON_DEVICE, else the user's own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

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

}  // namespace quillon::cli
