// A prepared process: everything of a launch that can be done before the application is known.
#pragma once

#include <signal.h>

#include <filesystem>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/worker/environment.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

// The same for every process of a launch pad.
struct WorkerConfig {
  std::filesystem::path executable;  // of the quillon command
  std::filesystem::path plugin;
  EnvironmentEntries environment;  // the launch pad's own, before it entered the device root
  sigset_t blocked;                // its blocked signals
};

// Prepares the calling process, tells so on `channel`, waits for a launch, carries it out, and ends
// with the application's status. Call in a fresh child of the launch pad, which has entered the
// device root and holds none of the launch pad's descriptors. Ends the process when the launch pad
// closes the channel.
//
// Descriptors 0 to 2 lead to nothing until the process has its application.
[[noreturn]] void runWorker(const WorkerConfig& config, const PoolKey& key, pid_t launchPad,
                            Descriptor channel);

}  // namespace quillon::launchpad
