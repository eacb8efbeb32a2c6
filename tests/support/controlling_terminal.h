// A terminal that a process must not make its own by opening it.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "util/zq_utils/descriptor.h"

namespace quillon::test {

// Calls `open` with the path of a new terminal, in a child process without a controlling terminal.
// Such a process gets one by opening it without O_NOCTTY (open(2)): a key pressed there would then
// send it signals. Returns "none" if it still has none, "has one" otherwise, or what failed.
inline std::string controllingTerminalAfter(const std::function<void(const std::string&)>& open) {
  const Descriptor main(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  if (!main.isOpen() || grantpt(main.get()) != 0 || unlockpt(main.get()) != 0) {
    return "cannot create a terminal";
  }
  const std::string path = ptsname(main.get());
  const pid_t child = fork();
  if (child == 0) {
    setsid();
    open(path);
    _exit(::open("/dev/tty", O_RDONLY | O_CLOEXEC) < 0 ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0 ? "none" : WIFEXITED(status) ? "has one" : "the process was killed";
}

}  // namespace quillon::test
