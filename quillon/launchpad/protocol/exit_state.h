// How an application ended, as its asking command is to end.
#pragma once

#include <string>

namespace quillon::launchpad {

struct ExitState {
  bool bySignal = false;
  int number = 0;  // exit status, or signal
};

std::string toBytes(const ExitState& ending);
ExitState endingOf(const std::string& bytes);

// Ends this process in the same way: returns the exit status, or does not return. The signal leaves
// no core dump of this process, since the application's own is the one that tells something.
int exitAs(const ExitState& ending);

// Ends this process by a signal whose default it is to end one; returns where it is not.
void killSelfBy(int signal);

}  // namespace quillon::launchpad
