#include "quillon/cli/detached_launch.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "quillon/base/process.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/cli/application_log.h"
#include "quillon/launchpad/protocol/exit_state.h"
#include "workstation/log_config.h"

namespace quillon::cli {
namespace {

using host::LaunchOptions;

// The log keeps its level: errors, and the application's output.
void logTo(const Descriptor& file) {
  if (std::getenv("QUILLON_LOG") != nullptr) {
    return;
  }
  workstation::LogConfig log = workstation::currentLog();
  log.target = "file";
  log.descriptor = fcntl(file.get(), F_DUPFD_CLOEXEC, 0);
  workstation::useLog(log);
}

void redirectStreams(const Descriptor& log) {
  const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  dup2(nothing.get(), STDIN_FILENO);
  dup2(log.get(), STDOUT_FILENO);
  dup2(log.get(), STDERR_FILENO);
}

// Ends with the parent until the application has started.
int runChild(LaunchOptions options, const std::function<int(const LaunchOptions&)>& launch,
             pid_t parent, const Descriptor& log, const Descriptor& started) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    return kServiceFailed;
  }
  setsid();
  redirectStreams(log);
  logTo(log);
  options.onStart = [&] {
    prctl(PR_SET_PDEATHSIG, 0);
    moveTerminal(log.get());
    [[maybe_unused]] const ssize_t written = write(started.get(), "s", 1);
  };
  return launch(options);
}

// Returns whether the other end has written before it is closed.
bool hasStarted(const Descriptor& pipe) {
  char byte = 0;
  ssize_t length = 0;
  do {
    length = read(pipe.get(), &byte, 1);
  } while (length < 0 && errno == EINTR);
  return length == 1;
}

int statusOf(pid_t child) {
  const int status = waitForEnd(child);
  const bool bySignal = WIFSIGNALED(status);
  return launchpad::exitAs({bySignal, bySignal ? WTERMSIG(status) : WEXITSTATUS(status)});
}

}  // namespace

int launchDetached(const LaunchOptions& options,
                   const std::function<int(const LaunchOptions&)>& launch) {
  const bool isNewLog = !openLog(options.device, options.appId);
  const auto log = openLogForAppending(options.device, options.appId);
  if (!log) {
    return report(log.error());
  }
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    return report({std::string("cannot make a pipe: ") + std::strerror(errno), {}});
  }
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    return runChild(options, launch, parent, *log, writer);
  }
  writer.reset();
  if (child < 0) {
    return report({"cannot start a process", "check the number of processes (ulimit -u)"});
  }
  if (hasStarted(reader)) {
    return kSuccess;
  }
  const int status = statusOf(child);
  if (isNewLog) {
    removeEmptyLog(options.device, options.appId);
  }
  return status;
}

}  // namespace quillon::cli
