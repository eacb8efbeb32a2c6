// Joins the namespaces of another process.
#pragma once

namespace quillon::zone {

// Moves the calling process into the mount, UTS and IPC namespaces of the process that `pidfd`
// refers to: all of them, or none. Returns 0 on success, else an errno value; EBUSY if the calling
// process has several threads.
[[nodiscard]] int joinNamespaces(int pidfd);

}  // namespace quillon::zone
