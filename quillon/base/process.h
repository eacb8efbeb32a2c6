// Child processes.
#pragma once

#include <sys/types.h>

namespace quillon {

// Waits until a child process has ended, also if signals interrupt the wait. Returns its status as
// waitpid(2) does, or -1 with errno set on failure.
int waitForEnd(pid_t child);

}  // namespace quillon
