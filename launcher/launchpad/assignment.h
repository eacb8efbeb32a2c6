// What a prepared process is told beside the request: what the launch pad found out about it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "launcher/launch_target.h"
#include "launcher/launchpad/packet.h"

namespace quillon::launchpad {

// Hands a request on to a prepared process.
bool sendAssignment(int socket, const launcher::LaunchTarget& target, const Packet& request);

struct Assignment {
  launcher::LaunchTarget target;  // without privileges, metadata and other applications
  uint64_t there = 0;             // for takeDescriptors
};

// Empty where the bytes are no assignment.
std::optional<Assignment> readAssignment(const std::string& bytes);

}  // namespace quillon::launchpad
