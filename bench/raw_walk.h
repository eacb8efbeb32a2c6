// What assembly discovery is compared with: the directories read with getdents64(2) through one
// 64 KiB buffer and nothing in between.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace quillon::bench {

// The number of files and symbolic links in the directories. Keeps nothing.
std::size_t walkKeepingNothing(const std::vector<std::string>& directories);

// The number of different assembly names in the directories. Keeps one name for each assembly.
std::size_t walkKeepingNames(const std::vector<std::string>& directories);

}  // namespace quillon::bench
