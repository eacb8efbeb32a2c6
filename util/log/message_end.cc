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

// Time that a message waits for room in the pipe while a reader exists.
constexpr int kMaxWait = 1000;  // milliseconds

int descriptorForMessages() {
  const int own = messageEnd;
  return own >= 0 ? own : __atomic_load_n(&pStdErr[1], __ATOMIC_SEQ_CST);
}

bool hasRoom(int end, const Deadline& deadline) {
  pollfd room{end, POLLOUT, 0};
  int ready = 0;
  do {
    ready = poll(&room, 1, deadline.left());
  } while (ready < 0 && errno == EINTR && deadline.left() > 0);
  // A write to a pipe without a reader would raise SIGPIPE.
  return ready > 0 && (room.revents & POLLERR) == 0;
}

}  // namespace

constinit std::atomic<int> messageEnd{-1};

ssize_t sendMessageToDlogError(const char* text) {
  const int end = descriptorForMessages();
  const Deadline deadline(stderrProgress.runsConcurrently() ? kMaxWait : 0);
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
