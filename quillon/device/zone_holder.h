// Finds a process whose user namespace an unprivileged process must share to join zones later.
#pragma once

#include <filesystem>

#include "quillon/device/mounts.h"

namespace quillon::device {

// Returns a descriptor (pidfd) of the holder of a running zone of the device root; invalid if no
// zone runs. A process in another user namespace than the holder's cannot join the zone.
[[nodiscard]] Descriptor findZoneHolder(const std::filesystem::path& device);

}  // namespace quillon::device
