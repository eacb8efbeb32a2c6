#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "util/log/message_end.h"
#include "util/log/private_descriptor.h"

void openMessageEnd(int writeEnd) {
  std::array<char, 32> path{};
  std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", writeEnd);
  const int end = open(path.data(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  messageEnd = end < 0 ? end : makePrivate(end);
}

void closeMessageEnd() {
  if (const int end = messageEnd.exchange(-1); end >= 0) {
    close(end);
  }
}
