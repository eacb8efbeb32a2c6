// A worker: a process that prepares everything of a launch that does not depend on the application,
// then waits for a launch and runs it.
#pragma once

#include <signal.h>

#include <filesystem>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/worker/environment.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

// Equal for all workers of a server.
struct WorkerConfig {
  std::filesystem::path executable;  // of the quillon program
  std::filesystem::path plugin;
  EnvironmentEntries environment;  // the server's, before it entered the device root
  sigset_t blocked;                // the server's signal mask
  EnvironmentChanges changes;      // that the server has made since, if `environment` is newer
};

// Prepares the calling process, sends kReady on `channel`, waits for a launch, runs it, and exits
// with the application's status. Exits if the server closes the channel. Call in a new child of the
// server `server` that has entered the device root and holds no descriptor of the server.
//
// Descriptors 0 to 2 refer to placeholders until the process has a launch.
[[noreturn]] void runWorker(const WorkerConfig& config, const PoolKey& key, pid_t server,
                            Descriptor channel);

}  // namespace quillon::launchpad
