// Resource limits (setrlimit(2)), which a worker adopts from the client.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace quillon::launchpad {

// One limit for each resource, in the kernel's order.
using Limits = std::vector<rlimit>;

// The limits of process `pid`; 0 means the calling process. Those of another user's process are 0.
Limits limitsOf(pid_t pid);
inline Limits currentLimits() { return limitsOf(0); }

// The limits that the C library and the runtime read only when they start (stack, data, address
// space), as bytes to compare.
std::string memoryLimitsOf(const Limits& limits);

// Whether an unprivileged process with the limits `own` can adopt `wanted`.
bool canAdopt(const Limits& own, const Limits& wanted);

// Sets the limits of the calling process, except those of memoryLimits(). Raises the limit of open
// files to its maximum, as the runtime does when it starts.
void adoptLimits(const Limits& wanted);

}  // namespace quillon::launchpad
