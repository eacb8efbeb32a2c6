// What a worker takes over from its client, other than arguments and environment.
#pragma once

#include "quillon/base/descriptor.h"
#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/hand_over.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/worker/stdio.h"

namespace quillon::launchpad {

// Gives this process the client's standard descriptors, log and inherited descriptors. If output is
// captured, descriptors 1 and 2 already refer to the plug-in's pipes, and only the duplicates that
// the runtime made before are redirected to the client's.
//
// client  the socket to the client, which gets another number if the application needs its number
[[nodiscard]] Expected<void> takeOverDescriptors(HandOver& handOver, const StdioPlaceholders& stdio,
                                                 Descriptor& client);

// Gives this process the client's umask, ignored signals, limits and working directory.
void takeOverProcessState(const HandOver& handOver, const Limits& limits,
                          const host::LaunchTarget& target);

}  // namespace quillon::launchpad
