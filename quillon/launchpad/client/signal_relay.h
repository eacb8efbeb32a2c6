// Hands the signals that this process gets to another one.
#pragma once

#include <signal.h>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

// While one exists, signals that would act on this process wait to be read in place of acting; the
// ones that this process ignores stay ignored. For a process of one thread.
class SignalRelay {
 public:
  // ignored  the signals that this process ignores
  explicit SignalRelay(const sigset_t& ignored);
  ~SignalRelay();
  SignalRelay(const SignalRelay&) = delete;
  SignalRelay& operator=(const SignalRelay&) = delete;

  // Readable when a signal has come.
  [[nodiscard]] int descriptor() const { return signals_.get(); }

  // Whom signals go to from here on, a pidfd. One that came before goes to it at once.
  void setTarget(Descriptor process);

  // Invalid before it is set.
  [[nodiscard]] const Descriptor& target() const { return target_; }

  // Ends it at once.
  void killTarget() const;

  // Reads the signals that have come and sends them on. SIGTSTP stops both processes: the other's
  // terminal is not its own, so that the kernel would not stop it by that signal.
  void relay();

  // The last signal sent on that asks a process to end; 0: none.
  [[nodiscard]] int endingSignal() const { return endingSignal_; }

 private:
  void send(int signal);
  void stopBoth();

  sigset_t before_{};
  Descriptor signals_;
  Descriptor target_;
  int endingSignal_ = 0;
};

}  // namespace quillon::launchpad
