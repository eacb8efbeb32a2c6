// The exported log functions for the tracer library that the plug-in activates.
#include <sys/prctl.h>

#include <cstring>
#include <new>

#include "platform/dlog.h"
#include "platform/launch_marker.h"
#include "quillon_tv_plugin.h"
#include "util/log/log.h"
#include "util/malloc_text.h"

namespace {

// The tracer's lines have the main source file of the plug-in as their origin. They have no colour
// and no line end.
constexpr char kTracerTag[] = "GCTracer";
constexpr char kOriginFile[] = "quillon-tv-plugin.cc";
constexpr int kInfoLine = 222;
constexpr int kDebugLine = 216;

void logForTracer(int priority, const char* function, int line, const char* text) {
  const MallocText owned(const_cast<char*>(text));
  if (text == nullptr) {
    return;
  }
  prctl(PR_LAUNCH_MARKER, text, strlen(text));
  __dlog_print(0, priority, kTracerTag, QUILLON_LOG_PREFIX "%s", kOriginFile, function, line, text);
}

}  // namespace

void print_log_info(const char* text) {
  logForTracer(DLOG_INFO, "print_log_info", kInfoLine, text);
}

void print_log_debug(const char* text) {
  logForTracer(DLOG_DEBUG, "print_log_debug", kDebugLine, text);
}

char* string_format_test(const char* format, const char** args, int size) try {
  return my_strinf_format(format, args, size);
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return nullptr;
}
