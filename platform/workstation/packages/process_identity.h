// Which process a process id means.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace quillon::workstation {

// When the process started, in clock ticks since boot: with the id it names one process for ever,
// although ids are used again. Empty when there is no such process.
std::optional<uint64_t> processStartTime(pid_t pid);

}  // namespace quillon::workstation
