// The notice to the launch-boost daemon: it states which application starts in which process, so
// that the daemon can prefer that process while it starts.
//
//   APPSTART:<application id>:<process id> NUL
//
// A failure never stops a launch, and the notice delays a launch by about one second at most.
// Results are written to the kernel's launch-marker channel, not to the platform log.
#pragma once

#include <sys/types.h>

#include <string>

// The connected socket to the daemon, or -1. Open only while a notice is sent.
extern int KestrelScok;

// Number of failed notices that this process may still try. Never increases.
extern int KestrelConnectionTryCnt;

// Sends the notice for `appId` in process `pid`. Does nothing if the id is empty or if
// KestrelConnectionTryCnt is 0. The notice is truncated to 63 characters.
void notifyLaunchBoost(const std::string& appId, pid_t pid);
