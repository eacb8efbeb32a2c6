// The address of a launch pad: one abstract unix socket address for each user and device root.
//
// An abstract address is not a file. The kernel frees it when the launch pad ends, however it ends.
// Any local user can bind one, so client and server both check the user of their peer.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::launchpad {

// The address for the calling process's user and a device root. Empty if the folder does not exist.
std::string addressOf(const std::filesystem::path& device);

// Listens at an address. Fails if another process does already.
[[nodiscard]] Expected<Descriptor> listenAt(const std::string& address,
                                            const std::filesystem::path& device);

// Connects to the launch pad of the calling process's user. Returns an invalid descriptor if no
// process of this user listens there.
Descriptor connectTo(const std::string& address);

// Accepts the next connection of the calling process's user. Closes those of other users without an
// answer. Returns an invalid descriptor with errno if there is none.
Descriptor acceptFrom(int listener);

}  // namespace quillon::launchpad
