#include "zone_log.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

#include "platform/dlog.h"

namespace quillon::zone {
namespace {

constexpr char kTag[] = "ZONE";

// Looked up, not linked: the library has to load wherever the platform's log comes from, and the
// libraries that it needs would be searched for inside a device root.
decltype(&__dlog_print) platformLog() {
  void* found = ::dlsym(RTLD_DEFAULT, "__dlog_print");
  if (found == nullptr) {
    // Loaded for the plug-in alone, the platform is not in the process's global scope.
    void* platform = ::dlopen("libquillon-platform.so", RTLD_LAZY | RTLD_NOLOAD);
    if (platform != nullptr) {
      found = ::dlsym(platform, "__dlog_print");
      ::dlclose(platform);  // takes back this reference; the process's own keeps it loaded
    }
  }
  return reinterpret_cast<decltype(&__dlog_print)>(found);
}

}  // namespace

void logError(const char* format, ...) {
  const auto print = platformLog();
  if (print == nullptr) {
    return;
  }
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  print(0, DLOG_ERROR, kTag, "%s", text);
}

}  // namespace quillon::zone
