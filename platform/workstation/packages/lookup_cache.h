// Caches what the calling process has found in the registry. The parts of a launch look up the same
// package several times; with the cache the process opens the registry once.
//
// An entry is valid as long as the registry file has the version (device, inode, size, times) that
// the entry was read from. So a lookup sees every install by another process.
//
// Thread safety: any thread may call. A thread that finds the lock taken, by another thread or in
// the parent of a fork, works without the cache.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "workstation/packages.h"

namespace quillon::workstation {

class LookupCache {
 public:
  // The version of the registry file. Take it before you open the registry.
  struct FileVersion {
    struct stat file;
    bool settled;  // old enough that the next change gets a different time stamp
  };
  static std::optional<FileVersion> currentVersion();

  using Entry = std::optional<Package>;  // nullopt: there is no such package

  // The entry stored under `key` for this version of the file; nullopt if there is none.
  static std::optional<Entry> find(const FileVersion& version, const std::string& key);
  static void store(const FileVersion& version, const std::string& key, const Entry& entry);
};

}  // namespace quillon::workstation
