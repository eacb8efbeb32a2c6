// The lists that the plug-in keeps in a device root between launches. docs/caches.md describes the
// files. The plug-in uses a whole file without asking whether the device has changed since.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"

namespace quillon::device {

enum class CacheState { kAbsent, kTorn, kWhole };

struct CachedList {
  std::string file;  // device path
  CacheState state = CacheState::kAbsent;
  std::string list;      // without the markers; empty if the file is not whole
  std::string outdated;  // "'/usr/apps' has changed since"; empty if nothing has
};

struct CachedLists {
  CachedList trusted;  // TPA.txt: the trusted platform assemblies
  CachedList shared;   // CoBA.txt: the folders that packages share
};

// Reads the lists of the device root that the process is inside of.
CachedLists readCachedLists();

// Removes the lists, so that the next launch builds them again. Call it before and after a change
// of what they are made of: packages and the framework. Between the two calls a launch may save a
// list that is already outdated. A power cut does not bring the removed lists back. Follows no
// symbolic link below `device`.
[[nodiscard]] Expected<void> removeCachedLists(const std::filesystem::path& device);

// What `list` needs to be current, for the messages of all commands.
Failure outdatedList(const CachedList& list);

}  // namespace quillon::device
