// The calling process as "/proc/self" describes it (proc(5)).
#pragma once

#include <signal.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "quillon/launchpad/state/proc_process.h"

namespace quillon::launchpad {

class ProcSelf : public ProcProcess {
 public:
  // Reads "status". Call before the process enters a device root.
  ProcSelf() : ProcProcess(0) {}

  // The set of signals in a line of "status". Bit 0 is signal 1. Excludes the signals between the
  // standard and the real-time ones: only the C library can use them, and posix_spawn(3) for
  // instance leaves them ignored in its children.
  [[nodiscard]] uint64_t signals(std::string_view name) const;

  // The signals that the process ignores.
  [[nodiscard]] sigset_t ignoredSignals() const;

  // The descriptors above 2 without FD_CLOEXEC.
  [[nodiscard]] std::vector<int> inheritedDescriptors() const;
};

}  // namespace quillon::launchpad
