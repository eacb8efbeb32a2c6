#include "tests/unit/plugin/scripted_sockets.h"

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "tests/support/next_call.h"

namespace quillon::test {
namespace {

// Returns -1 and sets errno if the test requests a failure, otherwise 0.
int failWith(int error) {
  if (!sockets().active || error == 0) {
    return 0;
  }
  errno = error;
  return -1;
}

int connectToTheTest(int descriptor, const sockaddr* address, socklen_t length) {
  ScriptedSockets& script = sockets();
  script.pauses.emplace_back("connect");
  script.askedFor = reinterpret_cast<const sockaddr_un*>(address)->sun_path;
  script.askedLength = length;
  script.askedFamily = address->sa_family;
  if (!script.connectErrors.empty()) {
    const int error = script.connectErrors.front();
    script.connectErrors.pop_front();
    if (failWith(error) != 0) {
      return -1;
    }
  }
  sockaddr_un own{};
  own.sun_family = AF_UNIX;
  script.daemon.copy(own.sun_path, sizeof(own.sun_path) - 1);
  const int result = next<decltype(&connect)>("connect")(
      descriptor, reinterpret_cast<sockaddr*>(&own), sizeof(own));
  return result == 0 && script.delays ? failWith(EINPROGRESS) : result;
}

}  // namespace

ScriptedSockets& sockets() {
  static ScriptedSockets instance;
  return instance;
}

}  // namespace quillon::test

using quillon::test::failWith;
using quillon::test::next;
using quillon::test::sockets;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (failWith(sockets().socketError) != 0) {
    return -1;
  }
  const int descriptor = next<decltype(&socket)>("socket")(domain, type, protocol);
  sockets().lastSocket = descriptor;
  sockets().socketArguments = {domain, type, protocol};
  return descriptor;
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
  if (sockets().active) {
    return quillon::test::connectToTheTest(descriptor, address, length);
  }
  return next<decltype(&connect)>("connect")(descriptor, address, length);
}

int fcntl(int descriptor, int command, ...) {
  va_list list;
  va_start(list, command);
  const long argument = va_arg(list, long);
  va_end(list);
  if (command == F_SETFL) {
    sockets().setFlags = argument;
  }
  const int error = command == F_GETFL   ? sockets().getFlagsError
                    : command == F_SETFL ? sockets().setFlagsError
                                         : 0;
  return failWith(error) != 0
             ? -1
             : next<int (*)(int, int, ...)>("fcntl")(descriptor, command, argument);
}

ssize_t send(int descriptor, const void* data, size_t length, int flags) {
  sockets().sendFlags = flags;
  return failWith(sockets().sendError) != 0
             ? -1
             : next<decltype(&send)>("send")(descriptor, data, length, flags);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept {
  if (sockets().active && level == SOL_SOCKET && option == SO_ERROR) {
    *static_cast<int*>(value) = sockets().pendingError;
    return failWith(sockets().getOptionError);
  }
  return next<decltype(&getsockopt)>("getsockopt")(descriptor, level, option, value, length);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
  if (sockets().active) {
    ++sockets().selectCalls;
    sockets().selectTimeout = *timeout;
    sockets().selectCount = count;
    // Not with FD_ISSET, which knows no descriptor past FD_SETSIZE.
    const auto* const words = reinterpret_cast<const fd_mask*>(writable);
    for (int descriptor = 0; descriptor < count; ++descriptor) {
      const auto bit = static_cast<unsigned>(descriptor % NFDBITS);
      if ((static_cast<unsigned long>(words[descriptor / NFDBITS]) >> bit & 1U) != 0) {
        sockets().watched.push_back(descriptor);
      }
    }
    if (sockets().selectResult != 1) {
      return sockets().selectResult;
    }
  }
  return next<decltype(&select)>("select")(count, readable, writable, failed, timeout);
}

int usleep(useconds_t microseconds) {
  if (sockets().active) {
    sockets().pauses.push_back("usleep(" + std::to_string(microseconds) + ")");
    return 0;
  }
  return next<decltype(&usleep)>("usleep")(microseconds);
}

}  // extern "C"
