/* The platform's trace: nested spans of one thread. Safe to call from any thread. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Opens a span on the calling thread. `name` is a finished text, never a format; copied. */
void trace_begin(const char* name);

/* Closes the calling thread's innermost open span. */
void trace_end(void);

#ifdef __cplusplus
}
#endif
