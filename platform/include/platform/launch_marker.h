/* The platform kernel's launch-marker channel: prctl(PR_LAUNCH_MARKER, text, strlen(text)).
 *
 * On a kernel without this option the call fails with EINVAL (prctl(2)). Callers ignore that.
 */
#pragma once

enum { PR_LAUNCH_MARKER = 666 };
