// Explains the exit of a process that the plug-in ends.
//
// The plug-in refuses an application by ending the process with status 0 after one line in the log,
// which a person at a terminal may not see. While an ExitExplainer exists, a process that exits
// reports the reason on the terminal.
#pragma once

#include "quillon/host/application/target.h"

namespace quillon::host {

// Only one may exist at a time. `call` and `target` must outlive it.
class ExitExplainer {
 public:
  // `call` is the name of the plug-in's function that the caller is about to call.
  ExitExplainer(const char* call, const LaunchTarget& target);
  ~ExitExplainer();
  ExitExplainer(const ExitExplainer&) = delete;
  ExitExplainer& operator=(const ExitExplainer&) = delete;
};

}  // namespace quillon::host
