// Lists that outlive a launch: each in one file of the cache directory, between two markers.
//
// A list is taken from its file while the file is whole, else built again and saved. Nothing in the
// file tells which state of the device it describes; cache_invalidation.h throws old ones away.
#pragma once

#include <functional>
#include <string>

// One cached list and what a launch says when it meets its file.
struct CachedList {
  const char* path;             // device path of the file
  const char* tornMilestone;    // marked before a torn file is replaced
  const char* cachedMilestone;  // marked when the file's list is used
};

// Returns the list in the file, or what `rebuild` returns when the file is missing or torn.
std::string readCachedListOr(const CachedList& list, const std::function<std::string()>& rebuild);

// Saves `payload` under `name` in the cache directory. A failure leaves the earlier file.
void saveCachedList(const char* name, const std::string& payload);
