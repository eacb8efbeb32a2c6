#include "quillon/launchpad/state/peer.h"

#include <cerrno>

#include "quillon/base/process.h"

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
  return errno == ENOPROTOOPT ? openPidfd(pid) : Descriptor();
}

}  // namespace quillon::launchpad
