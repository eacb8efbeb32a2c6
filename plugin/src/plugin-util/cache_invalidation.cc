#include "plugin/src/plugin-util/cache_invalidation.h"

#include <unistd.h>

#include <string>

#include "plugin/src/plugin-util/device_paths.h"
#include "util/log/log.h"
#include "util/zq_utils/cache_file.h"
#include "util/zq_utils/files.h"

namespace {

constexpr char kReadOnlyFlag[] = "/etc/dotnet_flag.ini";
constexpr char kWritableFlag[] = "/opt/etc/dotnet_flag.ini";

bool exists(const char* path) { return access(path, F_OK) == 0; }

void removeCacheFiles() {
  removeFile(device_paths::kTpaCache);
  removeFile(device_paths::kCobaCache);
  sync();
}

}  // namespace

void CheckDotnetFlagAndRemoveCacheFiles() {
  QLOG_SCOPE();
  // The writable copy is asked for twice, the read-only one never: a missing read-only copy counts
  // as an empty one.
  if (!exists(kWritableFlag) || !exists(kWritableFlag)) {
    TTraceLog("[quillon-tv-plugin] remove cache");
    removeCacheFiles();
    return;
  }
  const std::string readOnly = readFileToString(kReadOnlyFlag);
  const std::string writable = readFileToString(kWritableFlag);
  if (readOnly == writable) {
    TTraceLog("[quillon-tv-plugin] RO and RW same");
    return;
  }
  // The writable copy stays as it is: bringing the two into line is not this plug-in's business.
  TTraceLog("[quillon-tv-plugin] RO and RW diff");
  removeCacheFiles();
}
