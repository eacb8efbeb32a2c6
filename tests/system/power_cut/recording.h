// Records what a process does to the disk.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/system/power_cut/disk.h"

namespace quillon::power_cut {

struct Event {
  enum class Kind {
    kOperation,
    kSync,     // fsync(2) of `inode` has returned
    kSyncAll,  // sync(2) or syncfs(2) has returned
    kMark      // the process has called mark()
  } kind;
  Operation operation = {};
  std::size_t inode = 0;
};

struct Recording {
  Disk before;
  Disk after;
  std::vector<Event> events;
  std::string failure;  // why there is no recording; empty on success
};

// Runs `work` in a child process and records its changes of the folders `tops`.
Recording record(const std::vector<std::filesystem::path>& tops, const std::function<void()>& work);

// Called by `work` when something must have reached the disk, for example when an installation has
// returned.
void mark();

}  // namespace quillon::power_cut
