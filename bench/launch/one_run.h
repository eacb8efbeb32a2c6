// Starts a contender and measures the time from the request to its first output.
#pragma once

#include "bench/launch/asker.h"
#include "bench/launch/place.h"

namespace quillon::bench {

// Starts the contender with both outputs in one pipe and waits for its end. Applications print
// "ready PID". Other contenders print times that they have measured themselves.
//
// asker  requests the launch; null: the contender's command is started
[[nodiscard]] Run runOnce(const Contender& contender, Task task, const Asker* asker);

}  // namespace quillon::bench
