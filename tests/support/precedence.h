// For tests of code with a time limit, on a machine that runs other programs too.
#pragma once

#include <sched.h>

namespace quillon::test {

// Raises the scheduling priority of the test and its children, if permitted. The plug-in's signal
// handlers wait a tenth of a second for the thread that reads standard error. On a busy machine
// that thread may not run in time, but these tests check the rules, not the time limit.
class Precedence {
 public:
  Precedence() : granted_(set(SCHED_RR, 1)) {}
  ~Precedence() { set(SCHED_OTHER, 0); }
  Precedence(const Precedence&) = delete;
  Precedence& operator=(const Precedence&) = delete;

  [[nodiscard]] bool granted() const { return granted_; }

 private:
  static bool set(int policy, int priority) {
    const sched_param parameters{priority};
    return sched_setscheduler(0, policy, &parameters) == 0;
  }

  const bool granted_;
};

}  // namespace quillon::test
