// Watches a wait for the validator's answer, which has no end of its own.
//
// plugin_validate_dll blocks until somebody answers, for ever where the validator is gone. While a
// watch is armed, a timer's signal looks every second whether the validator still lives: a wait of
// a few seconds is told on the terminal, and the end of the validator ends the process.
#pragma once

#include <signal.h>

#include "quillon/base/failure.h"

namespace quillon::host {

// Whether a process reads the pipe that `requestPipe`, a descriptor, leads to: a living validator
// does. Async-signal-safe.
bool isServed(int requestPipe);

// One at a time, and while the process has no other use for SIGALRM and ITIMER_REAL, which are put
// back as they were. A call that the signal interrupts goes on by itself (SA_RESTART).
class AnswerWatch {
 public:
  // requestPipe  a descriptor of the pipe that a living validator reads; must outlive the watch
  // waiting      told on the terminal when the wait is long
  // ended        told when the validator ends meanwhile
  AnswerWatch(int requestPipe, const Failure& waiting, const Failure& ended);
  ~AnswerWatch();
  AnswerWatch(const AnswerWatch&) = delete;
  AnswerWatch& operator=(const AnswerWatch&) = delete;

 private:
  struct sigaction before_ {};
};

}  // namespace quillon::host
