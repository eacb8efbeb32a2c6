/* A zone library that records its calls in a file. The environment variable FAKE_ZONE selects a
 * failure: no-context, debug-refused or attach-refused. One function can be omitted at compile
 * time.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/zone.h"

static int context;

static int is(const char* behaviour) {
  const char* chosen = getenv("FAKE_ZONE");
  return chosen != NULL && strcmp(chosen, behaviour) == 0;
}

static void note(const char* call, const char* argument) {
  FILE* calls = fopen("/tmp/zone-calls", "a");
  fprintf(calls, "%s(%s)\n", call, argument);
  fclose(calls);
}

static const char* text(const void* given) { return given == &context ? "context" : "other"; }

#ifndef WITHOUT_GET_CONTEXT
void* zone_get_context(const char* name) {
  note("get", name);
  return is("no-context") ? NULL : &context;
}
#endif

#ifndef WITHOUT_RELEASE_CONTEXT
int zone_release_context(void** given) {
  note("release", text(*given));
  *given = NULL;
  return -1; /* callers ignore the result */
}
#endif

#ifndef WITHOUT_ATTACH_PROCESS
int zone_attach_process(void* given) {
  note("attach", text(given));
  return is("attach-refused") ? -1 : is("attach-zero") ? 0 : 1;
}
#endif

#ifndef WITHOUT_ENABLE_DEBUG_MODE
int zone_enable_debug_mode(void* given) {
  note("debug", text(given));
  return is("debug-refused") ? -1 : 0;
}
#endif
