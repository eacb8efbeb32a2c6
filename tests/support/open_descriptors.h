// The number of descriptors that this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace quillon::test {

// The count includes the descriptor that reads the folder, so compare two counts only.
inline std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

}  // namespace quillon::test
