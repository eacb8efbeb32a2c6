// One start of a contender, from the request to its first output.
#pragma once

#include "bench/launch/place.h"

namespace quillon::bench {

// Starts the contender with both outputs in one pipe, and waits for its end. The application says
// "ready PID"; what others print is their own measure.
[[nodiscard]] Run runOnce(const Contender& contender, Task task);

}  // namespace quillon::bench
