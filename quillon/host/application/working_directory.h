// The working directory of an application whose launch was started in a hidden folder.
#pragma once

#include <filesystem>

#include "quillon/host/application/target.h"

namespace quillon::host {

// Makes the application's own folder the working directory of the process, and warns the user: the
// working directory of the launch, `hidden`, is not visible inside the device root. `hidden` is
// empty if that folder was removed.
void useOwnFolder(const LaunchTarget& target, const std::filesystem::path& hidden);

}  // namespace quillon::host
