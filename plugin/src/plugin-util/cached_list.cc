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

// Throws std::out_of_range if `content` is shorter than the start marker.
std::string withoutMarkers(const std::string& content) {
  constexpr std::size_t kMarkers = kStart.size() + kEnd.size();
  return content.substr(kStart.size(), content.size() > kMarkers ? content.size() - kMarkers : 0);
}

// Returns nullopt if the file is incomplete or does not fit into memory.
std::optional<std::string> completePayload(const char* path) {
  try {
    const std::string content = readFileToString(path);
    return isCrashed(content) ? std::nullopt : std::optional(withoutMarkers(content));
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
