// What a new child of the server does to its process before it loads anything.
#pragma once

#include <signal.h>
#include <sys/types.h>

namespace quillon::launchpad {

// Has the kernel kill this process when the server ends. Call again after anything that changes the
// credentials of the process, because the kernel clears the setting then (prctl(2)).
void setParentDeathSignal(pid_t server);

// Starts a session, so that the job control of the server's terminal does not reach the process,
// and sets its signal mask.
void detachFromServer(const sigset_t& blocked);

// Lets the process keep its capabilities when it executes a program (capabilities(7), "Ambient").
// Without this, a user other than root loses them.
void keepCapabilitiesAcrossExec();

// Drops all capabilities of the calling thread. The threads that the runtime starts later inherit
// this, so call while the process has one thread.
void dropCapabilities();

}  // namespace quillon::launchpad
