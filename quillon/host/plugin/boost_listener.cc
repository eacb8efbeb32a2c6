#include "quillon/host/plugin/boost_listener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "device_paths.h"

namespace quillon::host {
namespace {

// What an exit handler, which takes no arguments, needs to know.
int g_socket = -1;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// A datagram socket is not let in, so a daemon notices nothing: the kernel says EPROTOTYPE where a
// stream socket has the address, and ECONNREFUSED where one was left behind, unix(7).
bool hasDaemon(const sockaddr_un& address) {
  const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (probe < 0) return false;
  const bool refused = connect(probe, generic(address), sizeof address) != 0 &&
                       (errno == ENOENT || errno == ECONNREFUSED);
  close(probe);
  return !refused;
}

bool isLeftBehind(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
         !hasDaemon(addressOf(path));
}

bool listenAt(int listener, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  if (bind(listener, generic(address), sizeof address) != 0) return false;
  if (listen(listener, SOMAXCONN) == 0) return true;
  unlink(path.c_str());
  return false;
}

// In place of a name that was left behind, in one step: another launch may do so at the same
// moment, and the last one serves both.
bool listenInPlaceOf(int listener, const std::string& path) {
  const std::string aside = path + "." + std::to_string(getpid());
  unlink(aside.c_str());
  if (!listenAt(listener, aside)) return false;
  if (rename(aside.c_str(), path.c_str()) == 0) return true;
  unlink(aside.c_str());
  return false;
}

// The name is nobody's, as a rule.
bool takeAddress(int listener, const std::string& path) {
  if (listenAt(listener, path)) return true;
  return errno == EADDRINUSE && isLeftBehind(path) && listenInPlaceOf(listener, path);
}

void stopListening() {
  if (g_socket < 0) return;
  // Its name first: whoever finds it is still heard.
  unlink(device_paths::kBoostSocket);
  close(g_socket);
  g_socket = -1;
}

}  // namespace

BoostListener::BoostListener() {
  [[maybe_unused]] static const int registered = std::atexit(stopListening);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (listener < 0) return;
  if (takeAddress(listener, device_paths::kBoostSocket)) {
    g_socket = listener;
  } else {
    close(listener);
  }
}

BoostListener::~BoostListener() { stopListening(); }

}  // namespace quillon::host
