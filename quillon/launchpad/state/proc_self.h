// The calling process as "/proc/self" describes it (proc(5)).
//
// Every launch waits for this. So the folder is looked up once, and "status" is read once instead
// of one system call for each signal, each set of capabilities and so on.
#pragma once

#include <signal.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

class ProcSelf {
 public:
  // Reads "status". Call before the process enters a device root.
  ProcSelf();

  // The value of a line of "status", such as "SigIgn". Returns nullopt if the kernel writes no such
  // line. Valid as long as this object lives.
  [[nodiscard]] std::optional<std::string_view> status(std::string_view name) const;

  // The set of signals in a line of "status". Bit 0 is signal 1. Excludes the signals between the
  // standard and the real-time ones: only the C library can use them, and posix_spawn(3) for
  // instance leaves them ignored in its children.
  [[nodiscard]] uint64_t signals(std::string_view name) const;

  // The signals that the process ignores.
  [[nodiscard]] sigset_t ignoredSignals() const;

  // The content of a file of the folder. Empty if it cannot be read.
  [[nodiscard]] std::string contentOf(const char* file) const;
  // The target of a short symbolic link of the folder. Empty if it cannot be read.
  [[nodiscard]] std::string targetOf(const char* link) const;

  // The descriptors above 2 without FD_CLOEXEC.
  [[nodiscard]] std::vector<int> inheritedDescriptors() const;

 private:
  Descriptor folder_;
  std::string status_;
};

}  // namespace quillon::launchpad
