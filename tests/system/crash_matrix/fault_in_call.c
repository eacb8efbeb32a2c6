/* A library to preload. It ends a process while the plug-in runs one of its functions, as a fault
 * in a library of the platform would. It overrides the platform's trace functions, which the
 * plug-in calls first and last in each of its functions.
 *
 * FAULT_IN   a part of the text of the trace span, for example "plugin_finalize("
 * FAULT_AT   "begin" or "end" of that span
 * FAULT_WAY  see managed/endings/native/faults.h
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "managed/endings/native/faults.h"
#include "platform/trace.h"

static _Thread_local int depth;
static _Thread_local int depth_of_span; /* 0: not in the span */

static int is_wanted(const char* variable, const char* value) {
  const char* wanted = getenv(variable);
  return wanted != NULL && strcmp(wanted, value) == 0;
}

static void fault(void) { sample_fault(getenv("FAULT_WAY")); }

void trace_begin(const char* name) {
  const char* wanted = getenv("FAULT_IN");
  ++depth;
  if (wanted != NULL && strstr(name, wanted) != NULL) {
    depth_of_span = depth;
    if (is_wanted("FAULT_AT", "begin")) {
      fault();
    }
  }
  ((void (*)(const char*))dlsym(RTLD_NEXT, "trace_begin"))(name);
}

void trace_end(void) {
  ((void (*)(void))dlsym(RTLD_NEXT, "trace_end"))();
  if (depth == depth_of_span && is_wanted("FAULT_AT", "end")) {
    fault();
  }
  --depth;
}
