// The clients that are connected to the server.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/server/catalogue.h"

namespace quillon::launchpad {

// A launch that a client has requested.
struct Launch {
  std::optional<ReceivedRequest> request;  // until the application starts
  std::shared_ptr<const Entry> entry;
  unsigned failedWorkers = 0;  // that ended before the application started
  uint64_t worker = 0;         // that has the launch
};

struct Client {
  Descriptor socket;
  std::optional<Launch> launch;
  bool awaitsShutdown = false;
  std::chrono::steady_clock::time_point connectedAt;
};

using Clients = std::map<uint64_t, Client>;  // by a number that is never reused

}  // namespace quillon::launchpad
