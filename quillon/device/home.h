// The home directory of a user inside a device root: "/opt/usr/home/UID".
#pragma once

#include "quillon/base/failure.h"

namespace quillon::device {

// Makes the calling user's home directory the one of the device: sets HOME, XDG_CONFIG_HOME,
// XDG_CACHE_HOME, XDG_DATA_HOME and XDG_STATE_HOME. Creates missing folders. Call inside a device
// root.
//
// Fails, with the environment unchanged, if the folder cannot be created, or if it is not a folder
// of this user. Another user who may write to the device root could have made it.
[[nodiscard]] Expected<void> useHome();

}  // namespace quillon::device
