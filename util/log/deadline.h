// A point in time that limits the waiting of signal handlers.
//
// Thread safety: a value type. All functions are async-signal-safe.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

class Deadline {
 public:
  explicit Deadline(int milliseconds) : end_(now() + milliseconds) {}

  // Returns the remaining milliseconds, or 0 after the deadline.
  int left() const { return static_cast<int>(std::max<std::int64_t>(end_ - now(), 0)); }

 private:
  static std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
  }

  std::int64_t end_;
};
