// Memory that a fork has left shared.
#pragma once

namespace quillon::launchpad {

// Copies what this process will write to and shares with the child that it has just forked: its
// heap, its own data and the stack. Each page would be copied when it is first written to
// otherwise, and that is while a launch waits. Does nothing where the kernel cannot (before 5.14).
//
// For a process of one thread.
void ownMemory();

}  // namespace quillon::launchpad
