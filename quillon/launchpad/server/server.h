// The launch pad: answers asking commands and tends the prepared processes.
//
// One thread, which waits for whatever happens next; nothing here starts another one, since the
// processes that it forks have to have one thread.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace quillon::launchpad {

struct LaunchpadOptions {
  std::filesystem::path device;
  std::vector<std::string>
      types;               // application types to prepare for; empty: all that are installed
  size_t size = 2;         // ready processes of each pool
  double refillDelay = 3;  // seconds
};

// Serves a device root until it is told to stop. Returns one of tools/exit_status.h, after one line
// on standard error where it could not serve. The process must have one thread; it has entered the
// device root afterwards.
int serve(const LaunchpadOptions& options);

}  // namespace quillon::launchpad
