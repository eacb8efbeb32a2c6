// Installs the zone library in device roots.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"

namespace quillon::zone {

// Copies this build's zone library to the device root. Keeps an existing library, since it may be
// the device's own.
[[nodiscard]] Expected<void> placeLibrary(const std::filesystem::path& device);

}  // namespace quillon::zone
