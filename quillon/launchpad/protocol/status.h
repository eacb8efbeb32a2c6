// The server's answer to kStatus.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::launchpad {

struct Status {
  struct Process {
    uint64_t pid = 0;
    std::string stage;        // "ready", "running", ...
    std::string pool;         // description of its pool
    std::string application;  // whose launch it has; empty if none
    uint64_t memoryKib = 0;   // proportional set size when it was ready; 0 before
  };
  struct DirectLaunch {
    uint64_t time = 0;  // seconds since 1970
    std::string application;
    std::string reason;
  };
  struct Reason {
    std::string text;
    uint64_t launches = 0;
  };

  uint64_t pid = 0;  // of the server
  bool isStopping = false;
  uint64_t prepared = 0;  // launches that workers have served
  uint64_t known = 0;     // those whose worker knew the application
  std::vector<std::string> pools;
  std::vector<Process> processes;
  std::vector<DirectLaunch> recent;  // the last direct launches, oldest first
  std::vector<Reason> reasons;       // of all direct launches
  // The time from a request to the start of its application: the launches up to each bound of
  // kLatencyBounds and above the last, and the sum of all.
  std::vector<uint64_t> latencies;
  uint64_t latencySumUs = 0;
  uint64_t ownMemoryKib = 0;     // for workers that know an application; 0 if there are none
  bool watchesPressure = false;  // whether the kernel reports a shortage of memory
  uint64_t shortages = 0;        // its reports
  // For want of memory: 0 no worker is missing, 1 those that know an application, 2 all.
  uint64_t shortage = 0;
};

inline constexpr double kLatencyBounds[] = {0.0025, 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1};

// Leaves out processes if the message would become too long.
std::string encode(const Status& status);

// Returns nullopt if the bytes are malformed.
std::optional<Status> decodeStatus(std::string_view bytes);

}  // namespace quillon::launchpad
