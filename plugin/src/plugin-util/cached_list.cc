#include "plugin/src/plugin-util/cached_list.h"

#include <unistd.h>

#include <string_view>

#include "plugin/src/plugin-util/device_paths.h"
#include "util/log/log.h"
#include "util/zq_utils/cache_file.h"

namespace {

constexpr std::string_view kStart = "[START]";
constexpr std::string_view kEnd = "[END]";

// Throws std::out_of_range when `content` is shorter than the start marker.
std::string withoutMarkers(const std::string& content) {
  constexpr std::size_t kMarkers = kStart.size() + kEnd.size();
  return content.substr(kStart.size(), content.size() > kMarkers ? content.size() - kMarkers : 0);
}

}  // namespace

std::string readCachedListOr(const CachedList& list, const std::function<std::string()>& rebuild) {
  if (access(list.path, F_OK) != 0) {
    return rebuild();
  }
  const std::string content = readFileToString(list.path);
  if (isCrashed(content)) {
    TTraceLog(list.tornMilestone);
    return rebuild();
  }
  TTraceLog(list.cachedMilestone);
  return withoutMarkers(content);
}

void saveCachedList(const char* name, const std::string& payload) {
  std::string content;
  content.reserve(kStart.size() + payload.size() + kEnd.size());
  content.append(kStart).append(payload).append(kEnd);
  writeStringToFile(device_paths::kCacheDirectory, name, content);
}
