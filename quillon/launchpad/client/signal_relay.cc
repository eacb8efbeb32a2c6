#include "quillon/launchpad/client/signal_relay.h"

#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace quillon::launchpad {
namespace {

// Not relayed: they report faults, children or the terminal of this process.
constexpr std::array kNotRelayed = {SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGTRAP, SIGSYS,
                                    SIGABRT, SIGPIPE, SIGCHLD, SIGTTIN, SIGTTOU};
// By default, these do not end a process (signal(7)).
constexpr std::array kNotEnding = {SIGCONT, SIGURG, SIGWINCH};

sigset_t relayed(const sigset_t& ignored) {
  sigset_t signals;
  sigfillset(&signals);
  for (const int signal : kNotRelayed) {
    sigdelset(&signals, signal);
  }
  for (int signal = 1; signal < NSIG; ++signal) {
    // If an ignored signal is blocked, the kernel queues it for signalfd(2) instead.
    if (sigismember(&ignored, signal) == 1) {
      sigdelset(&signals, signal);
    }
  }
  return signals;
}

bool sendTo(const Descriptor& process, int signal) {
  return syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0) == 0;
}

}  // namespace

SignalRelay::SignalRelay(const sigset_t& ignored) {
  const sigset_t signals = relayed(ignored);
  sigprocmask(SIG_BLOCK, &signals, &before_);
  signals_ = Descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

SignalRelay::~SignalRelay() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

void SignalRelay::setTarget(Descriptor process) {
  target_ = std::move(process);
  if (endingSignal_ != 0) {
    sendTo(target_, endingSignal_);
  }
}

void SignalRelay::killTarget() const { sendTo(target_, SIGKILL); }

void SignalRelay::relay() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == sizeof info) {
    const int signal = static_cast<int>(info.ssi_signo);
    signal == SIGTSTP ? stopBoth() : send(signal);
  }
}

void SignalRelay::send(int signal) {
  if (std::find(kNotEnding.begin(), kNotEnding.end(), signal) == kNotEnding.end()) {
    endingSignal_ = signal;
  }
  if (target_) {
    sendTo(target_, signal);
  }
}

void SignalRelay::stopBoth() {
  if (target_) {
    sendTo(target_, SIGSTOP);
  }
  raise(SIGSTOP);  // SIGCONT is relayed like any other signal
}

}  // namespace quillon::launchpad
