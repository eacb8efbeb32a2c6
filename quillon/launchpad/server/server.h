// The launch pad's server process.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace quillon::launchpad {

struct LaunchpadOptions {
  std::filesystem::path device;
  std::vector<std::string> types;  // application types to prepare for at the start; empty: all
  size_t size = 2;                 // ready workers of each pool
  double refillDelay = 3;          // seconds
  uint64_t memory = 64;            // MiB for workers that know an application; 0: none
  std::vector<std::filesystem::path> writable = {};  // machine paths that stay writable
  bool fresh = false;                                // start workers by exec; see fresh_worker.h
};

// Serves a device root until it is asked to stop. Returns an ExitStatus; on failure, after one line
// on standard error. The process must have one thread. It enters the device root.
int serve(const LaunchpadOptions& options);

}  // namespace quillon::launchpad
