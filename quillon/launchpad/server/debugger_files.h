// What the runtime's debugger leaves in the temporary folder when its process is killed: the
// runtime removes it only on an orderly end.
// https://github.com/dotnet/diagnostics/blob/main/documentation/design-docs/ipc-protocol.md has the
// names.
//
// Both work on "/tmp" of the device root that the calling process has entered, and leave what they
// may not remove.
#pragma once

#include <sys/types.h>

namespace quillon::launchpad {

// Removes the debugger's pipes and the diagnostics socket of a process. Call when it has ended and
// before it is reaped: its number may be another's afterwards.
void removeDebuggerFilesOf(pid_t process);

// The same for all processes that are not there any more, as seen from this one.
void removeDebuggerFilesOfDead();

}  // namespace quillon::launchpad
