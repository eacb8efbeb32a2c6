#include "tests/system/faults/watched_threads.h"

#include <atomic>

namespace quillon::faults {
namespace {

constinit std::atomic<bool> isWatching{false};
Threads watched = Threads::kCalling;

// Has a trivial constructor, so that malloc can read it at any time.
thread_local constinit bool isLauncher = false;

}  // namespace

void watchThreads(Threads threads) {
  isLauncher = true;
  watched = threads;
  isWatching = true;
}

bool isThreadWatched() { return isWatching && isLauncher == (watched == Threads::kCalling); }

}  // namespace quillon::faults
