// A platform log and trace that do nothing, so that a benchmark measures the plug-in's own work.
#include "platform/dlog.h"
#include "platform/trace.h"

extern "C" {

int __dlog_print(int /*log_id*/, int /*prio*/, const char* /*tag*/, const char* /*fmt*/, ...) {
  return 0;
}

void trace_begin(const char* /*name*/) {}

void trace_end() {}

}  // extern "C"
