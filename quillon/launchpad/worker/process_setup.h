// What a fresh child of the launch pad does to itself before it loads anything.
#pragma once

#include <signal.h>
#include <sys/types.h>

namespace quillon::launchpad {

// Ends with the launch pad, however that ends. Call again after anything that changes what the
// process may do: the kernel forgets it then.
void setParentDeathSignal(pid_t launchPad);

// A session of its own, so that no terminal's job control reaches it, and no blocked signals.
void detachFromLaunchPad(const sigset_t& blocked);

// Gives up every capability of the calling thread and, since it has no other, of the process: the
// runtime's threads start with what this one has.
void dropCapabilities();

}  // namespace quillon::launchpad
