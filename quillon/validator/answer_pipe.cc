#include "quillon/validator/answer_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <thread>

#include "quillon/base/descriptor.h"
#include "quillon_tv_plugin.h"

namespace quillon::validator {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kTimeout(10);
constexpr std::chrono::microseconds kMinPause(50);
constexpr std::chrono::microseconds kMaxPause(5000);

// The write end of the pipe. While it is open, the pipe keeps its content, and poll(2) reports when
// the last reader has closed it.
class AnswerPipe {
 public:
  AnswerPipe() : descriptor_(openPipe(O_WRONLY)), error_(errno) {}

  // open(2) of a pipe without a reader fails with ENXIO (fifo(7)). A requester opens it before it
  // asks.
  bool isUnread() const { return !descriptor_ && error_ == ENXIO; }
  bool isPipe() const {
    struct stat status {};
    return descriptor_ && fstat(descriptor_.get(), &status) == 0 && S_ISFIFO(status.st_mode);
  }
  // Locks the pipe until the object ends. Continues without the lock after the timeout: launches
  // hold it for a moment only.
  void lock() const {
    const auto end = steady_clock::now() + kTimeout;
    while (flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0 && steady_clock::now() < end) {
      std::this_thread::sleep_for(kMinPause);
    }
  }
  bool hasReaders() const {
    pollfd look{descriptor_.get(), POLLOUT, 0};
    return poll(&look, 1, 0) < 0 || (look.revents & POLLERR) == 0;
  }
  bool isEmpty() const {
    int unread = 0;
    return ioctl(descriptor_.get(), FIONREAD, &unread) != 0 || unread == 0;
  }
  static void drain() {
    std::array<char, 4096> unread;
    const Descriptor reader = openPipe(O_RDONLY);
    while (read(reader.get(), unread.data(), unread.size()) > 0) {
    }
  }

 private:
  static Descriptor openPipe(int direction) {
    return Descriptor(
        open(QUILLON_DLL_ANSWER_PIPE, direction | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  }

  Descriptor descriptor_;
  int error_;
};

// Returns false if no reader emptied the pipe in time.
bool waitUntilEmpty(const AnswerPipe& pipe, const std::function<bool()>& isAbandoned) {
  const auto end = steady_clock::now() + kTimeout;
  for (auto pause = kMinPause; !pipe.isEmpty(); pause = std::min(2 * pause, kMaxPause)) {
    if (!pipe.hasReaders() || isAbandoned() || steady_clock::now() > end) {
      return pipe.isEmpty();
    }
    std::this_thread::sleep_for(pause);
  }
  return true;
}

}  // namespace

Delivery deliver(const std::function<void()>& send, const std::function<bool()>& isAbandoned) {
  const AnswerPipe pipe;
  if (pipe.isUnread()) {
    return Delivery::kNoReader;
  }
  if (!pipe.isPipe()) {
    return Delivery::kNoPipe;
  }
  pipe.lock();
  if (isAbandoned()) {
    return Delivery::kNoReader;
  }
  if (!pipe.isEmpty()) {
    AnswerPipe::drain();
  }
  send();
  if (waitUntilEmpty(pipe, isAbandoned)) {
    return Delivery::kRead;
  }
  AnswerPipe::drain();
  return Delivery::kDiscarded;
}

}  // namespace quillon::validator
