// Lists that are cached between launches. Each list is one file in the cache directory, enclosed by
// two markers.
//
// A complete file is used as it is; otherwise the list is built again and saved. The file does not
// record the state of the device that it describes. cache_invalidation.h removes outdated files.
#pragma once

#include <functional>
#include <string>

// A cached list and the milestones that are logged when its file is read.
struct CachedList {
  const char* path;                 // path of the file
  const char* incompleteMilestone;  // logged before an incomplete file is replaced
  const char* cachedMilestone;      // logged when the list in the file is used
};

// Returns the list in the file, or the result of `rebuild` if the file is missing or incomplete.
std::string readCachedListOr(const CachedList& list, const std::function<std::string()>& rebuild);

// Saves `payload` as the file `name` in the cache directory. On failure the existing file remains.
void saveCachedList(const char* name, const std::string& payload);
