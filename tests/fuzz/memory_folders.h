// Folders in memory. The linker redirects the program's calls of opendir(3) and readdir(3) (--wrap
// in CMakeLists.txt).
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quillon::fuzz {

// As long as an object lives, its folders can be read. Only one object may exist at a time.
class MemoryFolders {
 public:
  // The names of the regular files of each folder, in the order in which readdir(3) returns them.
  using Folders = std::map<std::string, std::vector<std::string>>;

  explicit MemoryFolders(Folders folders);
  ~MemoryFolders();
  MemoryFolders(const MemoryFolders&) = delete;
  MemoryFolders& operator=(const MemoryFolders&) = delete;
};

}  // namespace quillon::fuzz
