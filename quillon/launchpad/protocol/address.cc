#include "quillon/launchpad/protocol/address.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>

#include "quillon/base/files.h"
#include "quillon/base/shell_word.h"
#include "quillon/launchpad/state/peer.h"

namespace quillon::launchpad {
namespace {

struct Address {
  sockaddr_un name{};
  socklen_t length = 0;
};

// An abstract name begins with a zero byte. Its length ends it, not a zero byte.
Address toSocketAddress(const std::string& address) {
  Address result;
  result.name.sun_family = AF_UNIX;
  const size_t length = std::min(address.size(), sizeof result.name.sun_path - 1);
  std::memcpy(result.name.sun_path + 1, address.data(), length);
  result.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
  return result;
}

Descriptor newSocket() {
  return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

uid_t userOfPeer(int socket) { return credentialsOfPeer(socket).uid; }

bool isOwnPeer(int socket) { return userOfPeer(socket) == geteuid(); }

// Whether this process runs as the overflow user: a user namespace shows its id for every user
// without a mapping (user_namespaces(7)). Device roots of ordinary users are in user namespaces.
bool isOverflowUser() {
  uid_t overflow = 65534;
  const std::string digits = readSmallFileAt(AT_FDCWD, "/proc/sys/kernel/overflowuid");
  std::from_chars(digits.data(), digits.data() + digits.size(), overflow);
  return geteuid() == overflow;
}

bool connectSocket(const Descriptor& socket, const Address& address) {
  return connect(socket.get(), reinterpret_cast<const sockaddr*>(&address.name), address.length) ==
         0;
}

// ", of user N" for a message, if another user's process listens at the address.
std::string ownerOf(const Address& address) {
  const Descriptor probe = newSocket();
  if (!connectSocket(probe, address) || isOwnPeer(probe.get())) {
    return {};
  }
  return ", of user " + std::to_string(userOfPeer(probe.get()));
}

}  // namespace

std::string addressOf(const std::filesystem::path& device) {
  struct stat status {};
  if (stat(device.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    return {};
  }
  return "quillon-launchpad/" + std::to_string(geteuid()) + "/" + std::to_string(status.st_dev) +
         "/" + std::to_string(status.st_ino);
}

Expected<Descriptor> listenAt(const std::string& address, const std::filesystem::path& device) {
  if (isOverflowUser()) {
    return fail("user " + std::to_string(geteuid()) +
                    " also stands for all users without an id in a user namespace",
                "run the launch pad as another user");
  }
  const Address name = toSocketAddress(address);
  Descriptor socket = newSocket();
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&name.name), name.length) == 0 &&
      listen(socket.get(), SOMAXCONN) == 0) {
    return socket;
  }
  if (errno != EADDRINUSE) {
    return fail(std::string("cannot listen for launches: ") + std::strerror(errno),
                "check that this machine allows unix sockets");
  }
  return fail(
      "a launch pad" + ownerOf(name) + " already serves the device root '" + device.string() + "'",
      "stop it first: quillon launchpad stop --device " + shellWord(device.string()));
}

Expected<Descriptor> connectTo(const std::string& address) {
  if (address.empty() || isOverflowUser()) {
    return Descriptor();
  }
  Descriptor socket = newSocket();
  if (!connectSocket(socket, toSocketAddress(address))) {
    return errno == EAGAIN ? fail("too many connections wait for the launch pad",
                                  "if it is stopped, continue or end it")
                           : Expected<Descriptor>();
  }
  if (!isOwnPeer(socket.get())) {
    return fail(
        "user " + std::to_string(userOfPeer(socket.get())) + " listens at the launch pad's address",
        "end that user's process");
  }
  return socket;
}

pid_t processOfPeer(int socket) { return credentialsOfPeer(socket).pid; }

Descriptor acceptFrom(int listener) {
  Descriptor client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (client && !isOwnPeer(client.get())) {
    client.reset();
    errno = EPERM;
  }
  return client;
}

}  // namespace quillon::launchpad
