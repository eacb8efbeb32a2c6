// What a process costs in memory.
#pragma once

#include <sys/types.h>

namespace quillon::bench {

struct Memory {
  long pssKib = 0;  // proportional set size: shared pages in equal parts to those who share them
  long privateKib = 0;  // pages of this process alone
};

// From /proc/PID/smaps_rollup; zeros where it cannot be read.
[[nodiscard]] Memory memoryOf(pid_t process);

}  // namespace quillon::bench
