#include "quillon/launchpad/state/peer.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace quillon::launchpad {
namespace {

#ifdef SO_PEERPIDFD
constexpr int kPeerPidfd = SO_PEERPIDFD;
#else
constexpr int kPeerPidfd = 77;  // older C libraries do not declare it
#endif

}  // namespace

ucred credentialsOfPeer(int socket) {
  ucred credentials{0, uid_t(-1), gid_t(-1)};
  socklen_t length = sizeof credentials;
  getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length);
  return credentials;
}

Descriptor pidfdOfPeer(int socket, pid_t pid) {
  int pidfd = -1;
  socklen_t length = sizeof pidfd;
  if (getsockopt(socket, SOL_SOCKET, kPeerPidfd, &pidfd, &length) == 0) {
    return Descriptor(pidfd);
  }
  return errno == ENOPROTOOPT ? Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)))
                              : Descriptor();
}

bool isRunning(const Descriptor& pidfd) {
  pollfd ended{pidfd.get(), POLLIN, 0};
  return pidfd && poll(&ended, 1, 0) == 0;
}

}  // namespace quillon::launchpad
