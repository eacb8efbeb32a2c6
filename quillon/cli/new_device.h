// What commands put into the device roots that they make.
#pragma once

#include <filesystem>
#include <optional>

#include "quillon/device/device_root.h"

namespace quillon::cli {

// Options for device::init() with the assembly Preload of this installation and the machine's
// certificates of authorities. Their paths are empty if there is no such file.
device::InitOptions initOptions(const std::optional<std::filesystem::path>& framework);

}  // namespace quillon::cli
