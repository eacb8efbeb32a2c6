#include "files/descriptor.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace quillon::workstation {
namespace {

constexpr int kFullForMs = 1000;

// Whether a write that failed with errno is worth another try.
bool mayRetry(int fd) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  pollfd writable{fd, POLLOUT, 0};
  return poll(&writable, 1, kFullForMs) > 0;
}

}  // namespace

void Descriptor::reset() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
    } else if (!mayRetry(fd)) {
      return false;
    }
  }
  return true;
}

}  // namespace quillon::workstation
