// Processes and their ends.
#pragma once

#include <sys/types.h>

#include "quillon/base/descriptor.h"

namespace quillon {

// Waits until a child process has ended, also if signals interrupt the wait. Returns its status as
// waitpid(2) does, or -1 with errno set on failure.
int waitForEnd(pid_t child);

// Returns a descriptor of the process (pidfd_open(2)), or an empty one with errno set.
Descriptor openPidfd(pid_t process);

// Whether the process of a pidfd has not ended, so that its process id still is its own. A zombie
// has ended. False if the descriptor is empty.
bool isRunning(const Descriptor& pidfd);

}  // namespace quillon
