// The memory of a process.
#pragma once

#include <sys/types.h>

namespace quillon::bench {

struct Memory {
  long pssKib = 0;      // proportional set size: each sharer counts its part of a shared page
  long privateKib = 0;  // pages that are not shared
};

// Reads /proc/PID/smaps_rollup. Returns zeros if it cannot be read.
[[nodiscard]] Memory memoryOf(pid_t process);

}  // namespace quillon::bench
