// Relays the signals that this process receives to another process.
#pragma once

#include <signal.h>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

// While an instance exists, it blocks the signals that it relays and reads them from a signalfd(2).
// Ignored signals stay ignored. For a process with one thread.
class SignalRelay {
 public:
  // ignored  the signals that this process ignores
  explicit SignalRelay(const sigset_t& ignored);
  ~SignalRelay();
  SignalRelay(const SignalRelay&) = delete;
  SignalRelay& operator=(const SignalRelay&) = delete;

  // Readable when a signal is pending.
  [[nodiscard]] int descriptor() const { return signals_.get(); }

  // Sets the process to relay signals to, a pidfd. If a signal that ends a process by default was
  // read before, sends it at once.
  void setTarget(Descriptor process);

  // Invalid until it is set.
  [[nodiscard]] const Descriptor& target() const { return target_; }

  // Sends SIGKILL to the target.
  void killTarget() const;

  // Relays the pending signals. SIGTSTP stops both processes: the target gets SIGSTOP, since it has
  // no controlling terminal and its orphaned process group would ignore SIGTSTP.
  void relay();

  // The last signal read that ends a process by default; 0 if none.
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
