// What the kernel tells of the calling process in "/proc/self" (proc(5)).
//
// A launch waits for it: the folder is looked up once, and one file tells what would otherwise take
// a system call for each signal, each set of capabilities and so on.
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
  // As it is now. Call before the process enters a device root.
  ProcSelf();

  // The value of a line of "status", such as "SigIgn"; nothing where the kernel tells none. Holds
  // as long as this object.
  [[nodiscard]] std::optional<std::string_view> status(std::string_view name) const;

  // The set of signals in a line of "status", signal 1 the lowest bit. Without those between the
  // standard and the real-time ones: they are the C library's, which for instance ignores them in
  // what posix_spawn(3) starts, and nobody else can.
  [[nodiscard]] uint64_t signals(std::string_view name) const;

  // The signals that it ignores.
  [[nodiscard]] sigset_t ignoredSignals() const;

  // What a file of the folder says; empty where it cannot be read.
  [[nodiscard]] std::string contentOf(const char* file) const;
  // Where a short link of the folder leads, as it is shown; empty where it cannot be read.
  [[nodiscard]] std::string targetOf(const char* link) const;

  // The descriptors above the standard ones that are not closed on exec.
  [[nodiscard]] std::vector<int> inheritedDescriptors() const;

 private:
  Descriptor folder_;
  std::string status_;
};

}  // namespace quillon::launchpad
