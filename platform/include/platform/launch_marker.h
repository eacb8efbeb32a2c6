/* The platform kernel's launch-marker channel: prctl(PR_LAUNCH_MARKER, text, strlen(text)).
 *
 * A kernel without the option fails the call with EINVAL, which callers ignore (prctl(2)).
 */
#pragma once

enum { PR_LAUNCH_MARKER = 666 };
