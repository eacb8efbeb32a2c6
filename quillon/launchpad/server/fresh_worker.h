// Workers that are started by exec. Each has an address layout of its own and no memory of the
// server's, which a forked worker shares with all others.
//
// A child of the server executes the quillon program with an internal command, `quillon launchpad
// worker`. The channel and the configuration are inherited descriptors.
#pragma once

#include <sys/types.h>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/worker/pool_key.h"
#include "quillon/launchpad/worker/worker.h"

namespace quillon::launchpad {

// Like runWorker(), in the same kind of process, but executes the program first.
[[noreturn]] void execWorker(const WorkerConfig& config, const PoolKey& key, pid_t server,
                             Descriptor channel);

// The internal command. Returns an ExitStatus if the descriptors are not those of execWorker();
// otherwise it does not return.
int runFreshWorker(int channel, int configuration);

}  // namespace quillon::launchpad
