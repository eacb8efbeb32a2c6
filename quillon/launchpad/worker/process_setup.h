// What a new child of the server does to its process before it loads anything.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstdint>

namespace quillon::launchpad {

// Has the kernel kill this process when the server ends. Call again after anything that changes the
// credentials of the process, because the kernel clears the setting then (prctl(2)).
void setParentDeathSignal(pid_t server);

// Starts a session, so that the job control of the server's terminal does not reach the process,
// and sets its signal mask.
void detachFromServer(const sigset_t& blocked);

// Ignores signals, as if the process had been executed with them ignored. Bit 0 is signal 1. Leaves
// the signals that the runtime handles even if they were ignored at its start.
void ignoreSignals(uint64_t signals);

// Lets the process keep its capabilities when it executes a program (capabilities(7), "Ambient").
// Without this, a user other than root loses them.
void keepCapabilitiesAcrossExec();

// Drops all capabilities of the calling thread. The threads that the runtime starts later inherit
// this, so call while the process has one thread.
void dropCapabilities();

}  // namespace quillon::launchpad
