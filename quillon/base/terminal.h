// The standard descriptors of the program, and reports to the terminal while they are redirected.
//
// From plugin_has_log_control on, the plug-in may redirect the process's standard output and error
// to the platform log. The launcher's own reports go to the standard error of the program's start.
#pragma once

#include "quillon/base/failure.h"

namespace quillon {

// Opens each of the descriptors 0 to 2 that is closed as /dev/null. Call first thing in a program:
// the next file that it opens would otherwise become a standard stream.
void openStandardDescriptors();

// Duplicates standard error to a close-on-exec descriptor for tell(). Call it before the plug-in is
// loaded; later calls do nothing.
void keepTerminal();

// The descriptor that tell() writes to, for signal handlers that call write(2) themselves.
int terminalDescriptor();

// Redirects tell() to the file of `descriptor`, which the caller keeps; to /dev/null if it is -1.
// For a worker that was prepared before its client was known.
void moveTerminal(int descriptor);

// Reports `failure` on that descriptor; see report().
void tell(const Failure& failure);

}  // namespace quillon
