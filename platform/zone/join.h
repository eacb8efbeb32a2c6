// Joining the namespaces of another process.
#pragma once

namespace quillon::zone {

// Moves the calling process into the mount, UTS and IPC namespaces of the process that `pidfd`
// stands for: all of them, or none. Returns 0, or the errno value of what stood in the way: EBUSY
// while the process has several threads.
[[nodiscard]] int joinNamespaces(int pidfd);

}  // namespace quillon::zone
