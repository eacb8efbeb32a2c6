// What became of the launches that clients have requested.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "quillon/launchpad/protocol/status.h"

namespace quillon::launchpad {

// Needs a bounded amount of memory, whatever clients send.
class Statistics {
 public:
  // A worker has started the application, that long after the request.
  //
  // isKnown  the worker knew the application before
  void onPrepared(std::chrono::microseconds latency, bool isKnown);
  // The client launches the application itself.
  void onDirect(std::string application, std::string reason);

  void addTo(Status& status) const;

 private:
  uint64_t prepared_ = 0;
  uint64_t known_ = 0;
  uint64_t latencySumUs_ = 0;
  std::vector<uint64_t> latencies_ = std::vector<uint64_t>(std::size(kLatencyBounds) + 1);
  std::deque<Status::DirectLaunch> recent_;
  std::map<std::string, uint64_t> reasons_;
};

}  // namespace quillon::launchpad
