// A watchdog for calls that wait for the validator without a time limit.
//
// plugin_validate_dll blocks until it reads an answer, for ever if the validator has ended. While a
// watchdog exists, a timer signal checks every second whether the validator runs. The watchdog
// reports a wait of a few seconds on the terminal, and ends the process if the validator ends.
#pragma once

#include <signal.h>

#include "quillon/base/failure.h"

namespace quillon::host {

// Whether a process has the reading end of a pipe open, as a running validator has that of the
// request pipe. `pipe` is a descriptor of the writing end. Async-signal-safe.
bool hasReader(int pipe);

// Only one may exist at a time. Uses SIGALRM and ITIMER_REAL: the process must not use them
// meanwhile. The destructor stops the timer and restores the signal action. System calls that the
// signal interrupts are restarted (SA_RESTART).
class ValidatorWatchdog {
 public:
  // requestPipe  a descriptor of the pipe that a running validator reads; must outlive the watchdog
  // waiting      reported on the terminal once, after a few seconds
  // ended        reported on the terminal if the validator ends; the process then ends with
  //              kValidatorState
  ValidatorWatchdog(int requestPipe, const Failure& waiting, const Failure& ended);
  ~ValidatorWatchdog();
  ValidatorWatchdog(const ValidatorWatchdog&) = delete;
  ValidatorWatchdog& operator=(const ValidatorWatchdog&) = delete;

 private:
  struct sigaction previousAction_ {};
};

}  // namespace quillon::host
