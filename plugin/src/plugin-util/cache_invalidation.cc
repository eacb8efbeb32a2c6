#include "plugin/src/plugin-util/cache_invalidation.h"

#include <unistd.h>

#include <string>

#include "device_paths.h"
#include "util/log/log.h"
#include "util/zq_utils/cache_file.h"
#include "util/zq_utils/files.h"

namespace {

bool exists(const char* path) { return access(path, F_OK) == 0; }

void removeCacheFiles() {
  removeFile(device_paths::kTpaCache);
  removeFile(device_paths::kCobaCache);
  sync();
}

}  // namespace

void CheckDotnetFlagAndRemoveCacheFiles() {
  QLOG_SCOPE();
  // Only the writable copy is tested, twice. A missing read-only copy counts as an empty file.
  if (!exists(device_paths::kWritableFlags) || !exists(device_paths::kWritableFlags)) {
    TTraceLog("[quillon-tv-plugin] remove cache");
    removeCacheFiles();
    return;
  }
  const std::string readOnly = readFileToString(device_paths::kReadOnlyFlags);
  const std::string writable = readFileToString(device_paths::kWritableFlags);
  if (readOnly == writable) {
    TTraceLog("[quillon-tv-plugin] RO and RW same");
    return;
  }
  // The plug-in itself does not update the writable copy.
  TTraceLog("[quillon-tv-plugin] RO and RW diff");
  removeCacheFiles();
}
