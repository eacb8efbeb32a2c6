// The state of a thread as proc(5) shows it.
#pragma once

#include <sys/types.h>

// Returns true if the thread of this process can run as soon as it gets a processor, or waits for a
// disk. Returns false if it sleeps, for example while it waits for a lock, if it has ended, and if
// its state cannot be read. Async-signal-safe.
bool isReadyToRun(pid_t thread);
