// Tests of what happens within a bounded time, on a machine that does other things as well.
#pragma once

#include <sched.h>

namespace quillon::test {

// Lets what the test starts run before everything else, where that is allowed. The plug-in's signal
// handlers wait a tenth of a second for the thread that reads standard error, which a crowded
// machine may not let run for so long; the rules are looked at, not the bound.
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
