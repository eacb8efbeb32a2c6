#include "quillon/base/process.h"

#include <sys/wait.h>

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

}  // namespace quillon
