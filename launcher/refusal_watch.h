// Explains a launch that the plug-in ends.
//
// The plug-in refuses an application by ending the process with status 0 after one line in the log,
// which a person at a terminal may never see. While a watch is armed, a process that ends says why.
#pragma once

#include "launcher/launch_target.h"

namespace quillon::launcher {

// One at a time. `target` must outlive the watch.
class RefusalWatch {
 public:
  // `call` is the plug-in's function that is about to run, a text that lives as long.
  RefusalWatch(const char* call, const LaunchTarget& target);
  ~RefusalWatch();
  RefusalWatch(const RefusalWatch&) = delete;
  RefusalWatch& operator=(const RefusalWatch&) = delete;
};

}  // namespace quillon::launcher
