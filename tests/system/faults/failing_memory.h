// Makes malloc(3), and with it the operators new, fail in the calling thread.
#pragma once

#include <cstddef>

namespace quillon::faults {

enum class Shortage { kOnce, kFromThenOn };

// From now on counts the allocations of the calling thread. The one with this number, or all from
// it on, fail. 0: none.
void failAllocation(std::size_t number, Shortage shortage);

// The number of allocations since failAllocation(), which a child process may have called.
std::size_t allocationsMade();

}  // namespace quillon::faults
