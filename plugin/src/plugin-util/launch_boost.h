// The notice to the launch-boost daemon: which application starts in which process, so that the
// daemon can favour that process while it starts.
//
//   APPSTART:<application id>:<process id> NUL
//
// Best effort: nothing here stops a launch, and it delays one by a second at most. What happens is
// told in the kernel's launch-marker channel, not in the platform log.
#pragma once

#include <sys/types.h>

#include <string>

// The connected socket to the daemon, or -1. Held for the length of one notice.
extern int KestrelScok;

// How many more failed notices this process may try. Never rises.
extern int KestrelConnectionTryCnt;

// Sends the notice for `appId` in process `pid`. Does nothing for an empty id, or when the daemon
// has failed too often in this process. The whole text is cut to 63 characters.
void notifyLaunchBoost(const std::string& appId, pid_t pid);
