#include <sys/prctl.h>

#include <cstring>

#include "platform/launch_marker.h"
#include "util/log/log.h"

namespace {

constexpr char kOriginFile[] = "log.cc";
constexpr int kOriginLine = 242;

}  // namespace

void TTraceLog(const char* text) {
  prctl(PR_LAUNCH_MARKER, text, strlen(text));
  QUILLON_LOG_LINE(DLOG_INFO, QUILLON_COLOUR_INFO, kOriginFile, "TTraceLog", kOriginLine, "%s",
                   text);
}
