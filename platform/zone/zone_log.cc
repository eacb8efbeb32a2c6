#include "zone_log.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

#include "platform/dlog.h"

namespace quillon::zone {
namespace {

constexpr char kTag[] = "ZONE";

// Looked up at run time instead of linked: any library may provide the platform's log, and the
// loader would search for a linked library inside the device root.
decltype(&__dlog_print) platformLog() {
  void* found = ::dlsym(RTLD_DEFAULT, "__dlog_print");
  if (found == nullptr) {
    // If only the plug-in has loaded the platform, it is not in the process's global scope.
    void* platform = ::dlopen("libquillon-platform.so", RTLD_LAZY | RTLD_NOLOAD);
    if (platform != nullptr) {
      found = ::dlsym(platform, "__dlog_print");
      ::dlclose(platform);  // drops our reference only; the library stays loaded
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
