// Where a launch pad is asked: one abstract unix address for each user and device root.
//
// An abstract address is no file: it is free again the moment the launch pad ends, however it ends.
// Anybody on the machine may take one, so both sides look who the other is.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"

namespace quillon::launchpad {

// The address for this process's user and a device root; empty where there is no such folder.
std::string addressOf(const std::filesystem::path& device);

// Listens there. Fails where another process does already.
[[nodiscard]] Expected<Descriptor> listenAt(const std::string& address,
                                            const std::filesystem::path& device);

// A connection to the launch pad of this process's user; invalid where none listens there, or
// somebody else's process does.
Descriptor connectTo(const std::string& address);

// The next connection of this process's own user; invalid when there is none. Those of other users
// are ended without an answer.
Descriptor acceptFrom(int listener);

}  // namespace quillon::launchpad
