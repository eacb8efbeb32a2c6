// Moves a thread to another processor.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstddef>

namespace quillon {

// Moves a runnable thread away from the processor of the calling thread, because a scheduler that
// packs threads would leave it there until the calling thread sleeps. The kernel moves the thread
// at once when its affinity changes, and does not move it back when the affinity allows the old
// processor again. Does nothing if the affinity allows no other processor.
//
// allowed  the affinity of the thread
// set      sets it
template <typename SetAffinity>
void moveToOtherProcessor(const cpu_set_t& allowed, const SetAffinity& set) {
  cpu_set_t others = allowed;
  CPU_CLR(static_cast<std::size_t>(sched_getcpu()), &others);
  if (CPU_COUNT(&others) != 0) {
    set(others);
    set(allowed);
  }
}

// The same for the first thread of another process.
inline void moveToOtherProcessor(pid_t process) {
  cpu_set_t allowed;
  if (sched_getaffinity(process, sizeof allowed, &allowed) == 0) {
    moveToOtherProcessor(allowed, [process](const cpu_set_t& affinity) {
      sched_setaffinity(process, sizeof affinity, &affinity);
    });
  }
}

}  // namespace quillon
