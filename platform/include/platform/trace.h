/* The platform's trace: nested spans per thread. May be called from any thread. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Opens a span on the calling thread. `name` is not a format. It is copied. */
void trace_begin(const char* name);

/* Closes the innermost open span of the calling thread. */
void trace_end(void);

#ifdef __cplusplus
}
#endif
