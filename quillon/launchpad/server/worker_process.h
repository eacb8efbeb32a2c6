// One process of the launch pad, from its fork to its end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/worker/pool_key.h"

namespace quillon::launchpad {

enum class Stage {
  kPreparing,
  kReady,     // waits for a launch
  kAssigned,  // has one; the application has not begun
  kRunning,
  kDiscarded,  // about to end unused
};

struct Process {
  uint64_t number = 0;  // never used again, unlike a process id
  pid_t pid = -1;
  Descriptor pidfd;
  Descriptor channel;  // closed by the process when its application begins
  Stage stage = Stage::kPreparing;
  PoolKey key;
  std::chrono::steady_clock::time_point start;
  std::string fingerprint;  // of what it was prepared from
  bool tookOver = false;    // it has all of its launch
  uint64_t client = 0;      // whose launch it has; 0: nobody's any more
};

// Forks. The child calls `become` with its end of the channel, which must not return. Empty where
// the machine has no process or descriptor left.
std::optional<Process> startProcess(const std::function<void(Descriptor)>& become);

// Ends it at once.
void killProcess(const Process& process);

// How it ended; empty while it runs. Call again only while it is empty. Takes the runtime's files
// away that it left.
std::optional<ExitState> endingOf(const Process& process);

}  // namespace quillon::launchpad
