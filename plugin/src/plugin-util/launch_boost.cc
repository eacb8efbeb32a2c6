#include "plugin/src/plugin-util/launch_boost.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "device_paths.h"
#include "platform/launch_marker.h"

namespace {

constexpr int kConnectAttempts = 5;
constexpr useconds_t kPauseMicroseconds = 10'000;
constexpr timeval kConnectTimeout = {.tv_sec = 1, .tv_usec = 0};
constexpr std::size_t kNoticeSize = 64;  // terminator included

using Notice = char[kNoticeSize];

void mark(const char* text) { prctl(PR_LAUNCH_MARKER, text, strlen(text)); }

// Closes `descriptor`, writes `why` to the launch-marker channel, and returns -1.
int giveUp(int descriptor, const char* why) {
  mark(why);
  close(descriptor);
  return -1;
}

int openSocket() {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  if (descriptor < 0) {
    mark("kest Client: No socket created:");
    return -1;
  }
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0) {
    return giveUp(descriptor, "kest Client:socket fcntl get fail:");
  }
  // Non-blocking, so that the wait for a slow daemon can time out.
  if (fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) < 0) {
    return giveUp(descriptor, "kest Client:socket fcntl fail:");
  }
  return descriptor;
}

int connectOnce(int descriptor) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  strncpy(address.sun_path, device_paths::kBoostSocket, sizeof(address.sun_path) - 1);
  // The daemon expects the length of the whole structure.
  return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// Allocates a descriptor set that is large enough for `descriptor`: launchers can have more than
// FD_SETSIZE descriptors open, which an fd_set cannot hold.
bool isWritableInTime(int descriptor) {
  const auto number = static_cast<std::size_t>(descriptor);
  std::vector<fd_mask> words(std::max(number / NFDBITS + 1, sizeof(fd_set) / sizeof(fd_mask)));
  words[number / NFDBITS] |= static_cast<fd_mask>(1UL << (number % NFDBITS));
  timeval timeout = kConnectTimeout;
  return select(descriptor + 1, nullptr, reinterpret_cast<fd_set*>(words.data()), nullptr,
                &timeout) > 0;
}

int pendingError(int descriptor) {
  int error = 0;
  socklen_t length = sizeof(error);
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

// Waits until a pending connection is established. Returns the socket, or -1 on failure.
int finishConnecting(int descriptor) {
  if (!isWritableInTime(descriptor)) {
    return giveUp(descriptor, "kest Client:connect timeout");
  }
  if (pendingError(descriptor) != 0) {
    return giveUp(descriptor, "kest Client:connect delayed error");
  }
  mark("kest Client:connect delayed");
  return descriptor;
}

// Returns a connected socket, or -1.
int connectToDaemon() {
  const int descriptor = openSocket();
  if (descriptor < 0) {
    return -1;
  }
  for (int attempt = 1;; ++attempt) {
    if (connectOnce(descriptor) == 0) {
      return descriptor;
    }
    if (errno == EINPROGRESS) {
      return finishConnecting(descriptor);
    }
    if (attempt == kConnectAttempts) {
      return giveUp(descriptor, "kest Client:connect error count out");
    }
    mark("kest Client:connect error");
    usleep(kPauseMicroseconds);
  }
}

// Each connection carries one notice and no reply.
void sendAndClose(const Notice& notice) {
  if (send(KestrelScok, notice, strlen(notice) + 1, MSG_NOSIGNAL) < 0) {
    mark("kest Client:cannot send_msg_to_bstr");
    --KestrelConnectionTryCnt;
  } else {
    mark(notice);
  }
  close(KestrelScok);
  KestrelScok = -1;
}

}  // namespace

int KestrelScok = -1;
int KestrelConnectionTryCnt = 5;

void notifyLaunchBoost(const std::string& appId, pid_t pid) {
  if (appId.empty() || KestrelConnectionTryCnt < 1) {
    return;
  }
  Notice notice;
  snprintf(notice, sizeof(notice), "APPSTART:%s:%d", appId.c_str(), pid);
  if (KestrelScok == -1) {
    KestrelScok = connectToDaemon();
  }
  // Descriptor 0 counts as "no socket". Devices depend on this.
  if (KestrelScok >= 1) {
    sendAndClose(notice);
  } else {
    mark("kest Client:try connect kestrel");
    --KestrelConnectionTryCnt;
  }
}
