// The reference for assembly discovery: reads the directories with getdents64(2) into a 64 KiB
// buffer.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quillon::bench {

// Counts the files and symbolic links in the directories. Stores nothing.
std::size_t walkKeepingNothing(const std::vector<std::string>& directories);

// Counts the different assembly names in the directories. Stores one name for each assembly.
std::size_t walkKeepingNames(const std::vector<std::string>& directories);

}  // namespace quillon::bench
