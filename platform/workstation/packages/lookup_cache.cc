#include "packages/lookup_cache.h"

#include <time.h>

#include <map>
#include <mutex>

#include "data_paths.h"

namespace quillon::workstation {
namespace {

// More than the resolution of the kernel's file time stamps (a tick, at most 10 ms).
constexpr long kSettledNs = 100'000'000;
// Two for each package of a workstation with many packages.
constexpr size_t kMaxEntries = 512;

struct Cache {
  std::mutex mutex;
  struct stat file {};
  std::map<std::string, LookupCache::Entry> entries;
};

// Lives until the process ends: threads may do lookups while static objects are destroyed.
Cache& cache() {
  static Cache& instance = *new Cache;
  return instance;
}

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
         one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
         one.st_mtim.tv_nsec == other.st_mtim.tv_nsec &&
         one.st_ctim.tv_sec == other.st_ctim.tv_sec && one.st_ctim.tv_nsec == other.st_ctim.tv_nsec;
}

bool isSettled(const struct stat& file) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const long long age =
      (now.tv_sec - file.st_ctim.tv_sec) * 1'000'000'000LL + (now.tv_nsec - file.st_ctim.tv_nsec);
  return age > kSettledNs;
}

}  // namespace

std::optional<LookupCache::FileVersion> LookupCache::currentVersion() {
  FileVersion version{};
  if (stat(kRegistryPath, &version.file) != 0) {
    return std::nullopt;
  }
  version.settled = isSettled(version.file);
  return version;
}

std::optional<LookupCache::Entry> LookupCache::find(const FileVersion& version,
                                                    const std::string& key) {
  const std::unique_lock lock(cache().mutex, std::try_to_lock);
  if (!lock || !version.settled || !isSame(version.file, cache().file)) {
    return std::nullopt;
  }
  const auto found = cache().entries.find(key);
  if (found == cache().entries.end()) {
    return std::nullopt;
  }
  return found->second;
}

void LookupCache::store(const FileVersion& version, const std::string& key, const Entry& entry) {
  const std::unique_lock lock(cache().mutex, std::try_to_lock);
  if (!lock || !version.settled) {
    return;
  }
  if (!isSame(version.file, cache().file) || cache().entries.size() >= kMaxEntries) {
    cache().entries.clear();
    cache().file = version.file;
  }
  cache().entries[key] = entry;
}

}  // namespace quillon::workstation
