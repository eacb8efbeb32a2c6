#include "quillon/launchpad/worker/process_setup.h"

#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace quillon::launchpad {

void setParentDeathSignal(pid_t server) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != server) {
    _exit(0);  // the server ended before the prctl()
  }
}

void detachFromServer(const sigset_t& blocked) {
  setsid();
  sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

void ignoreSignals(uint64_t signals) {
  for (int signal = 1; signals != 0; ++signal, signals >>= 1) {
    struct sigaction now {};
    if ((signals & 1) == 0 || sigaction(signal, nullptr, &now) != 0) {
      continue;
    }
    // The runtime handles these two unless they are ignored at its start.
    const bool isInterrupt = signal == SIGINT || signal == SIGQUIT;
    if (isInterrupt || now.sa_handler == SIG_DFL) {
      ::signal(signal, SIG_IGN);
    }
  }
}

void keepCapabilitiesAcrossExec() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  syscall(SYS_capget, &header, sets.data());
  for (__user_cap_data_struct& set : sets) {
    set.inheritable = set.permitted;
  }
  syscall(SYS_capset, &header, sets.data());
  for (int capability = 0; capability <= CAP_LAST_CAP; ++capability) {
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0);  // fails if it is not permitted
  }
}

void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  syscall(SYS_capset, &header, none.data());
}

}  // namespace quillon::launchpad
