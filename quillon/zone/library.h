// The zone library in a device root.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"

namespace quillon::zone {

// Puts a copy of this build's zone library at its place in the device root. One that is there
// stays, since it may be the device's own.
[[nodiscard]] Expected<void> placeLibrary(const std::filesystem::path& device);

}  // namespace quillon::zone
