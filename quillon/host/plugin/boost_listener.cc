#include "quillon/host/plugin/boost_listener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "device_paths.h"
#include "quillon/base/descriptor.h"

namespace quillon::host {
namespace {

struct Listener {
  Descriptor socket;
  struct stat path {};  // of the socket, before anybody could replace it
  pid_t owner = 0;
};

// A static variable because the exit handler takes no arguments.
Listener g_listener;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// Connects with a datagram socket, which a daemon does not notice: connect(2) fails with EPROTOTYPE
// if a stream socket listens at the address, and with ECONNREFUSED if no socket does (unix(7)).
bool hasDaemon(const sockaddr_un& address) {
  const Descriptor probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!probe) {
    return false;
  }
  return connect(probe.get(), generic(address), sizeof address) == 0 ||
         (errno != ENOENT && errno != ECONNREFUSED);
}

// Whether the path is a socket of a process that has ended.
bool isStaleSocket(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
         !hasDaemon(addressOf(path));
}

bool listenAt(Listener& listener, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  if (bind(listener.socket.get(), generic(address), sizeof address) != 0) {
    return false;
  }
  if (lstat(path.c_str(), &listener.path) == 0 && listen(listener.socket.get(), SOMAXCONN) == 0) {
    return true;
  }
  unlink(path.c_str());
  return false;
}

// Replaces a stale socket atomically. If another launch does so at the same time, the later one
// serves both.
bool replaceStaleSocket(Listener& listener, const std::string& path) {
  const std::string temporary = path + "." + std::to_string(getpid());
  unlink(temporary.c_str());
  if (!listenAt(listener, temporary)) {
    return false;
  }
  if (rename(temporary.c_str(), path.c_str()) == 0) {
    return true;
  }
  unlink(temporary.c_str());
  return false;
}

bool listenAtFreePath(Listener& listener, const std::string& path) {
  if (listenAt(listener, path)) {
    return true;
  }
  return errno == EADDRINUSE && isStaleSocket(path) && replaceStaleSocket(listener, path);
}

// Whether the path still is this process's socket.
bool ownsPath() {
  struct stat now {};
  return g_listener.owner == getpid() && lstat(device_paths::kBoostSocket, &now) == 0 &&
         now.st_ino == g_listener.path.st_ino && now.st_dev == g_listener.path.st_dev;
}

void stopListening() {
  if (!g_listener.socket) {
    return;
  }
  // Remove the path first, so that a client that found it can still connect.
  if (ownsPath()) {
    unlink(device_paths::kBoostSocket);
  }
  g_listener.socket.reset();
}

}  // namespace

BoostListener::BoostListener() {
  [[maybe_unused]] static const int registered = std::atexit(stopListening);
  Listener listener{Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)), {}, getpid()};
  if (listener.socket && listenAtFreePath(listener, device_paths::kBoostSocket)) {
    g_listener = std::move(listener);
  }
}

BoostListener::~BoostListener() { stopListening(); }

bool BoostListener::isListening() const { return static_cast<bool>(g_listener.socket); }

}  // namespace quillon::host
