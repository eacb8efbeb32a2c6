// What a process does before it has a second thread.
#pragma once

namespace quillon::host {

// Registers the process for membarrier(2), MEMBARRIER_CMD_PRIVATE_EXPEDITED, which the runtime will
// do as it starts. The kernel makes a process with one thread pay nothing for it, and one with more
// wait until every processor has gone through its scheduler, which takes as long as a small
// application's whole start. Kernels without it leave the runtime to its other means.
void registerThreadBarrier();

}  // namespace quillon::host
