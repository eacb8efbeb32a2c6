// Explains a launch that the plug-in ends.
//
// The plug-in refuses an application by ending the process with status 0 after one line in the log,
// which a person at a terminal may never see. While a watch is armed, a process that ends says why.
#pragma once

#include "quillon/host/application/target.h"

namespace quillon::host {

// One at a time. `target` must outlive the watch.
class RefusalWatch {
 public:
  // `call` is the plug-in's function that is about to run, a text that lives as long.
  RefusalWatch(const char* call, const LaunchTarget& target);
  ~RefusalWatch();
  RefusalWatch(const RefusalWatch&) = delete;
  RefusalWatch& operator=(const RefusalWatch&) = delete;
};

}  // namespace quillon::host
