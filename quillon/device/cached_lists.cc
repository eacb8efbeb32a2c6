#include "quillon/device/cached_lists.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string_view>
#include <tuple>

#include "device_names.h"
#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "workstation/packages.h"

namespace quillon::device {
namespace {

constexpr std::string_view kStart = device_names::kCacheStartMarker;
constexpr std::string_view kEnd = device_names::kCacheEndMarker;
constexpr std::size_t kMaxSize = std::size_t{64} << 20;

// The paths that a list is made of, with true for those that the list names.
using Sources = std::map<std::string, bool>;

// A folder's modification time changes when a file in it is added, removed or replaced.
Sources sourcesOfTrusted(const std::string& list) {
  Sources sources = {{device_paths::kNetcoreapp, false},
                     {device_paths::kFramework, false},
                     {device_paths::kPlatformLibraries, false},
                     {device_paths::kTvAppApi, false},
                     {workstation::kRegistryPath, false}};
  for (std::size_t start = 0; start < list.size();) {
    const std::size_t end = std::min(list.find(':', start), list.size());
    const std::string entry = list.substr(start, end - start);
    if (const std::size_t slash = entry.rfind('/'); slash != entry.npos && slash > 0) {
      sources[entry.substr(0, slash)] = true;
    }
    start = end + 1;
  }
  return sources;
}

Sources sourcesOfShared() { return {{workstation::kRegistryPath, false}}; }

std::string whyOutdated(const Sources& sources, const struct stat& cache) {
  const auto time = [](const struct stat& status) {
    return std::tuple(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
  };
  for (const auto& [path, isListed] : sources) {
    struct stat source {};
    const bool exists = stat(path.c_str(), &source) == 0;
    if (exists && time(source) > time(cache)) {
      return "'" + path + "' has changed since";
    }
    if (!exists && isListed && errno == ENOENT) {
      return "'" + path + "' is gone";
    }
  }
  return {};
}

// Reads the file without its age.
CachedList readList(const char* file) {
  CachedList cached{file, CacheState::kAbsent, {}, {}};
  const auto content = readWholeFile(file, kMaxSize);
  if (!content) {
    cached.state = errno == ENOENT ? CacheState::kAbsent : CacheState::kTorn;
    return cached;
  }
  const bool isWhole = content->size() >= kStart.size() + kEnd.size() &&
                       content->starts_with(kStart) && content->ends_with(kEnd);
  cached.state = isWhole ? CacheState::kWhole : CacheState::kTorn;
  if (isWhole) {
    cached.list = content->substr(kStart.size(), content->size() - kStart.size() - kEnd.size());
  }
  return cached;
}

void addAge(CachedList& cached, const Sources& sources) {
  struct stat status {};
  if (cached.state == CacheState::kWhole && stat(cached.file.c_str(), &status) == 0) {
    cached.outdated = whyOutdated(sources, status);
  }
}

}  // namespace

CachedLists readCachedLists() {
  CachedLists lists{readList(device_paths::kTpaCache), readList(device_paths::kCobaCache)};
  addAge(lists.trusted, sourcesOfTrusted(lists.trusted.list));
  addAge(lists.shared, sourcesOfShared());
  return lists;
}

Expected<void> removeCachedLists(const std::filesystem::path& device) {
  const Descriptor root(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor folder =
      openFolderWithoutLinks(root.get(), inRoot(device_paths::kCacheDirectory));
  int cause = folder ? 0 : errno;
  if (folder) {
    for (const char* name : {device_paths::kTpaCacheName, device_paths::kCobaCacheName}) {
      if (unlinkat(folder.get(), name, 0) != 0 && errno != ENOENT) {
        cause = errno;
      }
    }
    if (cause == 0 && fsync(folder.get()) != 0) {
      cause = errno;
    }
  }
  if (cause == 0 || cause == ENOENT) {
    return {};
  }
  const std::string path = pathInDevice(device, device_paths::kCacheDirectory).string();
  return fail("cannot remove the cached lists in '" + path + "': " + std::strerror(cause),
              "remove TPA.txt and CoBA.txt there as their owner");
}

Failure outdatedList(const CachedList& list) {
  return {"the cached list '" + list.file + "' is older than what it lists: " + list.outdated,
          "remove it: quillon cache clear"};
}

}  // namespace quillon::device
