#include "util/log/message_end.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "util/log/deadline.h"
#include "util/log/log.h"
#include "util/log/reader_progress.h"
#include "util/log/stream_capture.h"

namespace {

// How long a message waits for room while the reader lives.
constexpr int kLongestWait = 1000;

int endForMessages() {
  const int own = messageEnd;
  return own >= 0 ? own : std::atomic_ref(pStdErr[1]).load();
}

bool hasRoom(int end, const Deadline& deadline) {
  pollfd room{end, POLLOUT, 0};
  int ready = 0;
  do {
    ready = poll(&room, 1, deadline.left());
  } while (ready < 0 && errno == EINTR && deadline.left() > 0);
  // A pipe that nobody reads any more would answer a write with SIGPIPE.
  return ready > 0 && (room.revents & POLLERR) == 0;
}

}  // namespace

constinit std::atomic<int> messageEnd{-1};

ssize_t sendMessageToDlogError(const char* text) {
  const int end = endForMessages();
  const Deadline deadline(stderrProgress.readsBesideCaller() ? kLongestWait : 0);
  ssize_t written = -1;
  do {
    if (end >= 0 && !hasRoom(end, deadline)) {
      errno = EAGAIN;
      return -1;
    }
    written = write(end, text, strlen(text));
  } while (written < 0 && errno == EAGAIN && deadline.left() > 0);
  return written;
}
