// What a prepared process is told beside the request: what the launch pad found out about it.
#pragma once

#include <cstdint>
#include <optional>

#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/protocol/request.h"

namespace quillon::launchpad {

// Hands a request on to a prepared process.
bool sendAssignment(int socket, const host::LaunchTarget& target, const Message& request);

struct Assignment {
  host::LaunchTarget target;  // without privileges, metadata and other applications
  uint64_t there = 0;         // for takeDescriptors
  Request request;
};

// Empty where the packet holds no assignment. Leaves its descriptors to takeDescriptors.
std::optional<Assignment> readAssignment(const Message& packet);

}  // namespace quillon::launchpad
