// The clients that are connected to the server.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "quillon/base/descriptor.h"
#include "quillon/host/plugin/boost_listener.h"
#include "quillon/launchpad/server/catalogue.h"

namespace quillon::launchpad {

struct Client {
  Descriptor socket;
  Descriptor connection;               // the worker's end; the client has both ends
  std::shared_ptr<const Entry> entry;  // of its launch, while the client is inspected
  uint64_t worker = 0;                 // that has the client's launch; 0 if none
  std::string application;             // of its launch
  std::chrono::steady_clock::time_point requested;
  std::shared_ptr<host::BoostListener> boost;  // until its application starts
  bool awaitsShutdown = false;

  // Whether nothing depends on the connection.
  [[nodiscard]] bool isIdle() const { return worker == 0 && entry == nullptr && !awaitsShutdown; }
};

using Clients = std::map<uint64_t, Client>;  // by a number that is never reused and increases

}  // namespace quillon::launchpad
