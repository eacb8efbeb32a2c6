// The asking commands that are connected to the launch pad.
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

// What a command asked for and waits for.
struct Launch {
  ArrivedRequest arrived;
  std::shared_ptr<const Entry> entry;
  unsigned deaths = 0;   // of processes that had it, before its application began
  uint64_t process = 0;  // that has it
};

struct Client {
  Descriptor socket;
  std::optional<Launch> launch;
  bool awaitsEnd = false;  // of the launch pad
  std::chrono::steady_clock::time_point since;
};

using Clients = std::map<uint64_t, Client>;  // by a number that is never used again

}  // namespace quillon::launchpad
