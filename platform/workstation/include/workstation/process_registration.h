/* Makes a process known to the workstation's package service. For launchers in any language; on a
 * device the platform does this by itself. The function is in libquillon-platform.so. */
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Records that process `pid` runs an application of the package `package_id`, so that
 * aul_app_get_pkgid_bypid and the plug-in find the package. The record is valid until the process
 * ends. Another call for the same process replaces it.
 *
 * Returns 0 on success, and -1 after an error line in the platform log: if there is no such
 * process, if package_id is null, or if the record cannot be written in this device root. May be
 * called from any thread. */
int quillon_register_process(pid_t pid, const char* package_id);

#ifdef __cplusplus
}
#endif
