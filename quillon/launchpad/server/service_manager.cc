#include "quillon/launchpad/server/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace quillon::launchpad {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr char kSocketVariable[] = "NOTIFY_SOCKET";
constexpr char kWatchdogVariable[] = "WATCHDOG_USEC";

// The variable's value, which it has no longer. Empty if it has none.
std::string take(const char* variable) {
  const char* const value = std::getenv(variable);
  std::string text = value != nullptr ? value : "";
  unsetenv(variable);
  return text;
}

// Connects to a path, or to the name in the abstract namespace (unix(7)) that follows '@'. Returns
// an invalid descriptor on failure.
Descriptor connectTo(const std::string& address) {
  sockaddr_un name{};
  if (address.empty() || address.size() >= sizeof name.sun_path) {
    return Descriptor();
  }
  name.sun_family = AF_UNIX;
  std::memcpy(name.sun_path, address.data(), address.size());
  if (name.sun_path[0] == '@') {
    name.sun_path[0] = '\0';
  }
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
  Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&name), length) != 0) {
    socket.reset();
  }
  return socket;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(connectTo(take(kSocketVariable))) {
  const microseconds limit(std::strtoull(take(kWatchdogVariable).c_str(), nullptr, 10));
  if (socket_ && limit.count() > 0) {
    interval_ =
        std::chrono::duration_cast<milliseconds>(limit / 2);  // as sd_watchdog_enabled(3) says
  }
}

milliseconds ServiceManager::keepAlive() {
  const auto now = Clock::now();
  if (interval_.count() < 0) {
    return interval_;
  }
  if (now >= next_) {
    send("WATCHDOG=1");
    next_ = now + interval_;
  }
  return std::chrono::ceil<milliseconds>(next_ - now);
}

void ServiceManager::send(std::string_view state) const {
  if (socket_) {
    ::send(socket_.get(), state.data(), state.size(), MSG_NOSIGNAL);
  }
}

}  // namespace quillon::launchpad
