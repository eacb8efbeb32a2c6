// The threads whose calls count, and in which one of them fails.
#pragma once

namespace quillon::faults {

enum class Threads { kCalling, kOthers };

// From now on watches the calling thread, or all other threads of the process. Children that fork
// later inherit this.
void watchThreads(Threads threads);

// Whether the calling thread is watched. False before watchThreads(). Makes no system call and no
// allocation.
bool isThreadWatched();

}  // namespace quillon::faults
