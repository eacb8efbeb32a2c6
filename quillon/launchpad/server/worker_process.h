// A worker as the server sees it, from its fork to its end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

enum class Stage {
  kPreparing,
  kReady,     // waits for a launch
  kAssigned,  // has a launch whose application has not started
  kRunning,
  kDiscarded,  // killed before it got a launch
};

struct WorkerProcess {
  uint64_t number = 0;  // never reused, unlike a process id
  pid_t pid = -1;
  Descriptor pidfd;
  Descriptor channel;  // the worker closes its end when the application starts
  Stage stage = Stage::kPreparing;
  PoolKey key;
  std::chrono::steady_clock::time_point since;  // start of the stage
  std::string fingerprint;                      // of what it was prepared from
  uint64_t memoryKib = 0;                       // proportional set size when it was ready
  uint64_t client = 0;                          // the client of its launch; 0 if none
  std::string application;                      // of its launch
};

// Forks. The child calls `runChild`, which must not return, with its end of the channel. Returns
// nullopt if no process or descriptor is available.
std::optional<WorkerProcess> startWorker(const std::function<void(Descriptor)>& runChild);

// Sends SIGKILL.
void killWorker(const WorkerProcess& worker);

// Reaps the worker and removes the debugger files that the runtime left. Returns nullopt while it
// runs. Do not call again afterwards.
std::optional<ExitState> reapWorker(const WorkerProcess& worker);

}  // namespace quillon::launchpad
