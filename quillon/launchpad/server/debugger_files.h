// Files that the runtime's debugger leaves in the temporary folder if its process is killed: the
// runtime removes them only in an orderly exit. Their names are defined by
// https://github.com/dotnet/diagnostics/blob/main/documentation/design-docs/ipc-protocol.md
//
// Both functions work on "/tmp" of the device root that the calling process has entered. They skip
// files that they are not permitted to remove.
#pragma once

#include <sys/types.h>

namespace quillon::launchpad {

// Removes the debugger's pipes and the diagnostics socket of a process. Call after it has ended and
// before it is reaped, because its process id may be reused afterwards.
void removeDebuggerFilesOf(pid_t process);

// The same for all processes that do not run in this process's pid namespace.
void removeDebuggerFilesOfDead();

}  // namespace quillon::launchpad
