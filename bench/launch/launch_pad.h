// The launch pad that prepared contenders are served by.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <vector>

#include "bench/launch/memory.h"

namespace quillon::bench {

class LaunchPad {
 public:
  // Starts it for a device root, with one prepared process of a kind; it runs until this object
  // ends.
  LaunchPad(const std::filesystem::path& quillon, const std::filesystem::path& device);
  ~LaunchPad();
  LaunchPad(const LaunchPad&) = delete;
  LaunchPad& operator=(const LaunchPad&) = delete;

  // Waits until every pool has its process, some seconds at most.
  void awaitFull() const;

  // Of each process that is ready.
  [[nodiscard]] std::vector<Memory> memoryOfReady() const;

 private:
  std::filesystem::path device_;
  pid_t process_ = -1;
};

}  // namespace quillon::bench
