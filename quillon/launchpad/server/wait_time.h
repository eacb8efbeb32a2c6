// Times to wait for, of which a negative one means forever, as for poll(2).
#pragma once

#include <chrono>

namespace quillon::launchpad {

inline constexpr std::chrono::milliseconds kNever(-1);

// Returns the shorter wait.
inline std::chrono::milliseconds shorter(std::chrono::milliseconds one,
                                         std::chrono::milliseconds other) {
  const std::chrono::milliseconds none(0);
  return one < none || (other >= none && other < one) ? other : one;
}

}  // namespace quillon::launchpad
