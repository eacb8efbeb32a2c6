// The process at the other end of a connected unix socket.
//
// The kernel records it when it calls connect(2), or listen(2) for a server. It stays the same if
// the process passes its end to another process.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

// Its ids as this process sees them (SO_PEERCRED). The process id is 0 if the peer is in a PID
// namespace that this process cannot see into, or if `socket` has no peer.
ucred credentialsOfPeer(int socket);

// A pidfd of the peer. Invalid if the peer has ended.
//
// Kernels before 6.5 lack SO_PEERPIDFD. There, the result is the process that has the peer's
// process id now.
//
// pid  the peer's process id
Descriptor pidfdOfPeer(int socket, pid_t pid);

}  // namespace quillon::launchpad
