// What commands put into the device roots that they make.
#pragma once

#include <filesystem>
#include <optional>

#include "quillon/base/failure.h"
#include "quillon/device/device_root.h"

namespace quillon::cli {

// Options for device::init() with the assembly Preload of this installation and the machine's
// certificates of authorities. Their paths are empty if there is no such file.
device::InitOptions initOptions(const std::optional<std::filesystem::path>& framework);

// Makes the device root `directory`, and says so, if it is the user's own and does not exist. Fails
// with kNoRuntime if this machine has no .NET runtime.
[[nodiscard]] Expected<void> makeDeviceOfUser(const std::filesystem::path& directory);

}  // namespace quillon::cli
