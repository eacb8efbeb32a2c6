#include "tools/validator/answer_pipe.h"

#include <fcntl.h>
#include <quillon_tv_plugin.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <thread>

namespace quillon::validator {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(10);
constexpr std::chrono::microseconds kShortestPause(50);
constexpr std::chrono::microseconds kLongestPause(5000);

// A reading end. While it is open the pipe keeps what nobody else has open.
class AnswerPipe {
 public:
  AnswerPipe()
      : descriptor_(open(QUILLON_DLL_ANSWER_PIPE, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC)) {
  }
  ~AnswerPipe() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  AnswerPipe(const AnswerPipe&) = delete;
  AnswerPipe& operator=(const AnswerPipe&) = delete;

  bool isPipe() const {
    struct stat status {};
    return descriptor_ >= 0 && fstat(descriptor_, &status) == 0 && S_ISFIFO(status.st_mode);
  }
  bool isEmpty() const {
    int unread = 0;
    return ioctl(descriptor_, FIONREAD, &unread) != 0 || unread == 0;
  }
  void drain() const {
    std::array<char, 4096> unread;
    while (read(descriptor_, unread.data(), unread.size()) > 0) {
    }
  }

 private:
  int descriptor_;
};

// False when nobody emptied the pipe in time.
bool waitUntilEmpty(const AnswerPipe& pipe, pid_t asker) {
  const auto end = steady_clock::now() + kPatience;
  for (auto pause = kShortestPause; !pipe.isEmpty(); pause = std::min(2 * pause, kLongestPause)) {
    if (hasEnded(asker) || steady_clock::now() > end) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

}  // namespace

bool hasEnded(pid_t process) { return process > 0 && kill(process, 0) != 0 && errno == ESRCH; }

Delivery deliver(pid_t asker, const std::function<void()>& send) {
  const AnswerPipe pipe;
  if (!pipe.isPipe()) return Delivery::kNoPipe;
  pipe.drain();
  send();
  if (waitUntilEmpty(pipe, asker)) return Delivery::kTaken;
  pipe.drain();
  return Delivery::kWithdrawn;
}

}  // namespace quillon::validator
