// A moment until which signal handlers may wait.
//
// Thread safety: a value. Async-signal-safe.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

class Deadline {
 public:
  explicit Deadline(int milliseconds) : end_(now() + milliseconds) {}

  // Milliseconds left; 0 once it has passed.
  int left() const { return static_cast<int>(std::max<std::int64_t>(end_ - now(), 0)); }

 private:
  static std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
  }

  std::int64_t end_;
};
