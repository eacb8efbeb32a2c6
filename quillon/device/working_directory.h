// The working directory of a process that moves into a device root.
#pragma once

#include <cstdint>
#include <string>

namespace quillon::device {

struct WorkingDirectory {
  std::string path;  // empty if it was removed
  // st_dev and st_ino, if a device root can have a folder of its own at the path; else 0.
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
};

// The working directory of this process, outside of a device root.
[[nodiscard]] WorkingDirectory workingDirectory();

// Makes `directory` the working directory of this process, which is inside a device root. Returns
// false, and changes to "/", if the device root hides it: the path does not exist inside, or is the
// path of another folder there. A mount point for --writable stays in the device root, for example.
[[nodiscard]] bool changeTo(const WorkingDirectory& directory);

// Whether --writable can show the folder inside.
[[nodiscard]] bool canStayWritable(const std::string& directory);

}  // namespace quillon::device
