// The person at the terminal, whatever becomes of descriptors 1 and 2.
//
// From plugin_has_log_control on, the plug-in may lead the process's standard output and error into
// the platform log. What the launcher has to say goes to where standard error led at the start.
#pragma once

#include "quillon/base/failure.h"

namespace quillon {

// Keeps a descriptor of its own for standard error. Call before the plug-in is loaded; calls after
// the first do nothing.
void keepTerminal();

// Where tell() writes to, for a signal handler that writes by itself.
int terminalDescriptor();

// Moves the terminal to where `descriptor` leads, which stays the caller's; nowhere for -1. For a
// process that was prepared before it was known who asks for a launch.
void moveTerminal(int descriptor);

// Writes "quillon: <what>; <remedy>" as one line.
void tell(const Failure& failure);

}  // namespace quillon
