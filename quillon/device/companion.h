// Whose user namespace a process shares that enters a device root without privileges.
#pragma once

#include <filesystem>

#include "quillon/device/mounts.h"

namespace quillon::device {

// A descriptor (pidfd) of a process that holds a running zone of the device root; invalid where no
// zone runs. From another user namespace than that process's the zone could not be joined later.
[[nodiscard]] Descriptor findCompanion(const std::filesystem::path& device);

}  // namespace quillon::device
