#include "plugin/src/plugin-util/library_preload.h"

#include <dlfcn.h>

#include <fstream>
#include <string>

#include "util/log/log.h"

namespace {

constexpr char kListFile[] = "/usr/bin/dotnet_preload_so_list.txt";

void preload(const std::string& library) {
  dlerror();
  if (dlopen(library.c_str(), RTLD_NOW) == nullptr) {
    const char* why = dlerror();
    QLOG_ERROR("%s", why != nullptr ? why : "");
  }
}

}  // namespace

void preloadSharedLibraries() {
  QLOG_SCOPE();
  QLOG_INFO("### preloadSharedLibraries called ###");
  std::ifstream list(kListFile);
  for (std::string library; list >> library;) {
    preload(library);
  }
}
