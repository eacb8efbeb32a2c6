// The address of a launch pad: one abstract unix socket address for each user and device root.
//
// An abstract address is not a file. The kernel frees it when the launch pad ends, however it ends.
// Any local user can bind one, so client and server both check the user of their peer.
#pragma once

#include <sys/types.h>

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

// Connects to the launch pad of the calling process's user, without waiting for it. The socket is
// nonblocking. Returns an invalid descriptor if no process listens there. Fails if another user's
// process does, or if too many connections wait for the launch pad.
[[nodiscard]] Expected<Descriptor> connectTo(const std::string& address);

// The process at the other end of a socket of connectTo(); 0 if it is not known.
pid_t processOfPeer(int socket);

// Accepts one connection if one is waiting. Closes a connection of another user without an answer.
// Otherwise returns an invalid descriptor with errno: EPERM for a connection of another user,
// EAGAIN if none is waiting.
Descriptor acceptFrom(int listener);

}  // namespace quillon::launchpad
