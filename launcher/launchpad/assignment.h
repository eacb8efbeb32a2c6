// What a prepared process is told beside the request: what the launch pad found out about it.
#pragma once

#include <cstdint>
#include <optional>

#include "launcher/launch_target.h"
#include "launcher/launchpad/packet.h"
#include "launcher/launchpad/request.h"

namespace quillon::launchpad {

// Hands a request on to a prepared process.
bool sendAssignment(int socket, const launcher::LaunchTarget& target, const Packet& request);

struct Assignment {
  launcher::LaunchTarget target;  // without privileges, metadata and other applications
  uint64_t there = 0;             // for takeDescriptors
  Request request;
};

// Empty where the packet holds no assignment. Leaves its descriptors to takeDescriptors.
std::optional<Assignment> readAssignment(const Packet& packet);

}  // namespace quillon::launchpad
