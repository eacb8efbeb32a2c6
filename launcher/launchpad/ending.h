// How an application ended, as its asking command is to end.
#pragma once

#include <string>

namespace quillon::launchpad {

struct Ending {
  bool bySignal = false;
  int number = 0;  // exit status, or signal
};

std::string toBytes(const Ending& ending);
Ending endingOf(const std::string& bytes);

// Ends this process in the same way: returns the exit status, or does not return. The signal leaves
// no core dump of this process, since the application's own is the one that tells something.
int endAs(const Ending& ending);

// Ends this process by a signal whose default it is to end one; returns where it is not.
void dieBy(int signal);

}  // namespace quillon::launchpad
