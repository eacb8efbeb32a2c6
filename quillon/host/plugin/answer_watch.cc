#include "quillon/host/plugin/answer_watch.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "quillon/base/report.h"
#include "quillon/base/terminal.h"

namespace quillon::host {
namespace {

constexpr time_t kSecondsBetweenLooks = 1;
constexpr int kLooksBeforeWaitIsTold = 2;

// All that the signal handler needs, made before the timer is set.
struct Watched {
  int pipe = -1;
  std::string waiting;  // lines for the terminal
  std::string ended;
  int terminal = -1;
  int looks = 0;
};
Watched watched;

void tellNow(const std::string& line) {
  [[maybe_unused]] const ssize_t written = write(watched.terminal, line.data(), line.size());
}

// Async-signal-safe calls only (signal-safety(7)).
void look(int /*signal*/) {
  const int kept = errno;
  if (!isServed(watched.pipe)) {
    tellNow(watched.ended);
    _exit(kValidatorState);
  }
  if (++watched.looks == kLooksBeforeWaitIsTold) tellNow(watched.waiting);
  errno = kept;
}

void setTimer(time_t seconds) {
  const itimerval time{{seconds, 0}, {seconds, 0}};
  setitimer(ITIMER_REAL, &time, nullptr);
}

}  // namespace

// A write to a pipe that nobody reads would fail, and poll(2) says so of its writing end
// beforehand.
bool isServed(int requestPipe) {
  pollfd look{requestPipe, POLLOUT, 0};
  return poll(&look, 1, 0) < 0 || (look.revents & POLLERR) == 0;
}

AnswerWatch::AnswerWatch(int requestPipe, const Failure& waiting, const Failure& ended) {
  watched = {requestPipe, reportLine(waiting), reportLine(ended), terminalDescriptor(), 0};
  struct sigaction action {};
  action.sa_handler = look;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, &before_);
  setTimer(kSecondsBetweenLooks);
}

AnswerWatch::~AnswerWatch() {
  setTimer(0);
  sigaction(SIGALRM, &before_, nullptr);
}

}  // namespace quillon::host
