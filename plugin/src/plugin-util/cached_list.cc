#include "plugin/src/plugin-util/cached_list.h"

#include <unistd.h>

#include <new>
#include <optional>
#include <string_view>
#include <utility>

#include "device_names.h"
#include "device_paths.h"
#include "util/log/log.h"
#include "util/zq_utils/cache_file.h"

namespace {

constexpr std::string_view kStart = device_names::kCacheStartMarker;
constexpr std::string_view kEnd = device_names::kCacheEndMarker;

// Returns nullopt if the file is incomplete or does not fit into memory.
std::optional<std::string> completePayload(const char* path) {
  try {
    std::string content = readFileToString(path);
    if (!isComplete(content)) {
      return std::nullopt;
    }
    content.resize(content.size() - kEnd.size());
    content.erase(0, kStart.size());
    return content;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace

std::string readCachedListOr(const CachedList& list, const std::function<std::string()>& rebuild) {
  if (access(list.path, F_OK) != 0) {
    return rebuild();
  }
  std::optional<std::string> payload = completePayload(list.path);
  if (!payload) {
    TTraceLog(list.incompleteMilestone);
    return rebuild();
  }
  TTraceLog(list.cachedMilestone);
  return *std::move(payload);
}

void saveCachedList(const char* name, const std::string& payload) {
  std::string content;
  content.reserve(kStart.size() + payload.size() + kEnd.size());
  content.append(kStart).append(payload).append(kEnd);
  writeStringToFile(device_paths::kCacheDirectory, name, content);
}
