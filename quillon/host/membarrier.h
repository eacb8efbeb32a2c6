// Registration for membarrier(2).
#pragma once

namespace quillon::host {

// Registers the process for membarrier(2) with MEMBARRIER_CMD_PRIVATE_EXPEDITED, as the runtime
// does when it starts. The kernel registers a process with one thread at no cost. For a process
// with more threads it waits until every processor has passed through the scheduler, which takes as
// long as the start of a small application. Call before the process has a second thread. If the
// kernel does not support the command, the runtime uses another mechanism.
void registerMembarrier();

}  // namespace quillon::host
