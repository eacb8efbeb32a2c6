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

void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  syscall(SYS_capset, &header, none.data());
}

}  // namespace quillon::launchpad
