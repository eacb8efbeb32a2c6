/* The platform's zone library: moves a process into a running security zone.
 *
 * The library is not linked. Callers load ZONE_LIBRARY_PATH with dlopen(3) and look up the
 * functions with dlsym(3). The declarations provide the types (decltype(&zone_attach_process), or
 * typeof in C).
 *
 *   void* context = zone_get_context("appzone");
 *   if (context != NULL && zone_attach_process(context) < 0) {
 *     // the process is unchanged, outside the zone
 *   }
 *   zone_release_context(&context);
 *
 * On failure a function writes one line to the platform log and does not change the process. A
 * context may be used by one thread at a time. errno is preserved.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define ZONE_LIBRARY_PATH "/usr/lib/libzone.so.5"

/* Finds a running zone.
 *
 * name  the zone's name; copied
 *
 * Returns a context that the caller must release with zone_release_context, or null if there is no
 * running zone of that name. The context always refers to this run of the zone, never to a later
 * run or to another process that reuses a process id.
 */
void* zone_get_context(const char* name);

/* Allows a debugger outside the zone that has no more privileges than the calling process to attach
 * to it. This remains in effect after the process has entered the zone. The kernel still checks
 * each attachment: the debugger must run as the same user and have at least the same capabilities.
 *
 * Returns a negative value on failure.
 */
int zone_enable_debug_mode(void* context);

/* Moves the calling process into the zone. The process must have exactly one thread. The working
 * directory keeps its path if the path exists in the zone, and becomes "/" otherwise.
 *
 * Returns a negative value on failure. The process is then unchanged.
 */
int zone_attach_process(void* context);

/* Releases a context and sets `*context` to null. Does nothing if `context` or `*context` is null.
 *
 * Returns 0.
 */
int zone_release_context(void** context);

#ifdef __cplusplus
}
#endif
