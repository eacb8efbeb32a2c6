// The number of descriptors that this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace quillon::test {

// Counts the one that it reads them with, too, so only differences are meaningful.
inline std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

}  // namespace quillon::test
