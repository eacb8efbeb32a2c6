#include "util/log/private_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

int makePrivate(int descriptor) {
  if (descriptor > STDERR_FILENO) {
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
  }
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (moved < 0) {
    return descriptor;
  }
  close(descriptor);
  return moved;
}
