/* The platform's zone library: moves a process into a running security zone.
 *
 * Never linked: who needs it loads ZONE_LIBRARY_PATH at run time and looks the functions up by the
 * names below. The declarations give their types (decltype(&zone_attach_process), or typeof in C).
 *
 *   void* context = zone_get_context("appzone");
 *   if (context != NULL && zone_attach_process(context) < 0) {
 *     // still wholly outside the zone
 *   }
 *   zone_release_context(&context);
 *
 * Every failure writes one line to the platform log and changes nothing about the process. A
 * context may be used by one thread at a time. errno is left as it was.
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
 * Returns a context, which the caller gives back with zone_release_context; null when there is no
 * zone of that name or when it does not run. The context goes on naming that very run of the zone:
 * it never comes to mean another process, or the zone started anew.
 */
void* zone_get_context(const char* name);

/* Lets a debugger that has no privilege beyond the calling process's own, and that runs outside the
 * zone, attach to the calling process; it stays so in the zone. Attaching itself stays the kernel's
 * decision: the debugger must be of the same user and have no fewer capabilities.
 *
 * Returns a negative value on failure.
 */
int zone_enable_debug_mode(void* context);

/* Moves the calling process, which must have one thread, into the zone. The working directory stays
 * at its path where the zone has that path, and is "/" otherwise.
 *
 * Returns a negative value on failure; the process is then as it was.
 */
int zone_attach_process(void* context);

/* Gives a context back and sets the caller's variable to null. Null, or a null variable, is fine.
 *
 * Returns 0.
 */
int zone_release_context(void** context);

#ifdef __cplusplus
}
#endif
