#include "quillon/host/plugin/validator_watchdog.h"

#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "quillon/base/report.h"
#include "quillon/base/terminal.h"

namespace quillon::host {
namespace {

constexpr time_t kCheckIntervalSeconds = 1;
constexpr int kChecksBeforeReport = 2;

// The state that the signal handler uses. It is complete before the timer starts.
struct WatchdogState {
  int pipe = -1;
  std::string waiting;  // lines for the terminal
  std::string ended;
  int terminal = -1;
  int checks = 0;
};
WatchdogState g_state;

void writeToTerminal(const std::string& line) {
  [[maybe_unused]] const ssize_t written = write(g_state.terminal, line.data(), line.size());
}

// Makes async-signal-safe calls only (signal-safety(7)).
void check(int /*signal*/) {
  const int savedErrno = errno;
  if (!hasReader(g_state.pipe)) {
    writeToTerminal(g_state.ended);
    _exit(kValidatorState);
  }
  if (++g_state.checks == kChecksBeforeReport) {
    writeToTerminal(g_state.waiting);
  }
  errno = savedErrno;
}

void setTimer(time_t seconds) {
  const itimerval interval{{seconds, 0}, {seconds, 0}};
  setitimer(ITIMER_REAL, &interval, nullptr);
}

}  // namespace

// poll(2) reports POLLERR for the writing end of a pipe without a reader.
bool hasReader(int pipe) {
  pollfd request{pipe, POLLOUT, 0};
  return poll(&request, 1, 0) < 0 || (request.revents & POLLERR) == 0;
}

ValidatorWatchdog::ValidatorWatchdog(int requestPipe, const Failure& waiting,
                                     const Failure& ended) {
  g_state = {requestPipe, reportLine(waiting), reportLine(ended), terminalDescriptor(), 0};
  struct sigaction action {};
  action.sa_handler = check;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, &previousAction_);
  setTimer(kCheckIntervalSeconds);
}

ValidatorWatchdog::~ValidatorWatchdog() {
  setTimer(0);
  sigaction(SIGALRM, &previousAction_, nullptr);
}

}  // namespace quillon::host
