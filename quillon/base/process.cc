#include "quillon/base/process.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace quillon {

int waitForEnd(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      return -1;
    }
  }
  return status;
}

Descriptor openPidfd(pid_t process) {
  return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
}

bool isRunning(const Descriptor& pidfd) {
  pollfd ended{pidfd.get(), POLLIN, 0};
  return pidfd && poll(&ended, 1, 0) == 0;
}

}  // namespace quillon
