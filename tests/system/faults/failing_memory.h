// Makes malloc(3), and with it the operators new, fail in some threads.
#pragma once

#include <cstddef>

#include "tests/system/faults/watched_threads.h"

namespace quillon::faults {

enum class Shortage { kOnce, kFromThenOn };

// From now on counts the allocations of these threads. The one with this number, or all from it on,
// fail. 0: none.
void failAllocation(std::size_t number, Shortage shortage, Threads threads = Threads::kCalling);

// The number of allocations since failAllocation(), which a child process may have called.
std::size_t allocationsMade();

}  // namespace quillon::faults
