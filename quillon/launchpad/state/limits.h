// Resource limits (setrlimit(2)), which a prepared process takes over from the asking command.
#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace quillon::launchpad {

// One for each resource, in the kernel's order.
using Limits = std::vector<rlimit>;

Limits currentLimits();

// Those that the C library and the runtime look at when they start, as bytes to compare: of the
// stack, the data and the address space.
std::string memoryLimits();

// Whether a process with the limits `own` and no privilege can take over `wanted`.
bool canTakeOver(const Limits& own, const Limits& wanted);

// Gives the calling process the limits, those of memory excepted. As the runtime does when it
// starts, raises the number of open files to what is allowed.
void takeOver(const Limits& wanted);

}  // namespace quillon::launchpad
