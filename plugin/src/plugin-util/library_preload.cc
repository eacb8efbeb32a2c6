#include "plugin/src/plugin-util/library_preload.h"

#include <dlfcn.h>

#include <sstream>
#include <string>

#include "device_paths.h"
#include "util/log/log.h"
#include "util/zq_utils/cache_file.h"

namespace {

// The handle is never closed, so the library stays loaded until the process ends.
bool load(const std::string& library) {
  dlerror();
  return dlopen(library.c_str(), RTLD_NOW) != nullptr;
}

}  // namespace

void preloadSharedLibraries() {
  QLOG_SCOPE();
  QLOG_INFO("### preloadSharedLibraries called ###");
  std::istringstream list(readFileToString(device_paths::kPreloadList));
  for (std::string library; list >> library;) {
    if (!load(library)) {
      const char* why = dlerror();
      QLOG_ERROR("%s", why != nullptr ? why : "");
    }
  }
}
