#include "quillon/timeline/timed_launch.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/launch_marker.h"
#include "quillon/base/exit_status.h"
#include "quillon/base/process.h"
#include "quillon/base/report.h"
#include "quillon/host/launch.h"
#include "quillon/timeline/timeline.h"
#include "quillon/timeline/timeline_page.h"
#include "workstation/trace_start.h"

namespace quillon::timeline {
namespace {

namespace fs = std::filesystem;

constexpr std::array<int, 6> kForwardedSignals = {SIGINT, SIGQUIT, SIGTERM,
                                                  SIGHUP, SIGUSR1, SIGUSR2};

// For the signal handler.
volatile sig_atomic_t g_child = 0;

// Ignores signals from the terminal, which also sends them to the child: it is in the same process
// group.
void forwardSignal(int signal, siginfo_t* info, void* /*context*/) {
  const int savedErrno = errno;
  if (info->si_code != SI_KERNEL) {
    kill(static_cast<pid_t>(g_child), signal);
  }
  errno = savedErrno;
}

void forwardSignalsTo(pid_t child) {
  g_child = child;
  struct sigaction action {};
  action.sa_sigaction = forwardSignal;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  for (const int signal : kForwardedSignals) {
    sigaction(signal, &action, nullptr);
  }
}

std::string describeExit(int status) {
  if (!WIFSIGNALED(status)) {
    return "ended with status " + std::to_string(WEXITSTATUS(status));
  }
  return "ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
         strsignal(WTERMSIG(status)) + ")";
}

void mark(const std::string& text) { prctl(PR_LAUNCH_MARKER, text.c_str(), text.size()); }

// Ends this process by the signal that ended the child, without a second core dump.
[[noreturn]] void dieBySignal(int signal) {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  ::signal(signal, SIG_DFL);
  raise(signal);
  _exit(128 + signal);
}

int exitLikeChild(int status) {
  if (WIFSIGNALED(status)) {
    dieBySignal(WTERMSIG(status));
  }
  return WEXITSTATUS(status);
}

[[noreturn]] void launchInChild(const host::LaunchOptions& options, const fs::path& trace,
                                pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) {
    _exit(kServiceFailed);
  }
  if (const auto started = workstation::startTrace(trace.string()); !started) {
    _exit(report(started.error()));
  }
  exit(host::launch(options));
}

// Creates the file, or empties it. Call before the launch, so that a failure is reported before it.
Expected<void> createEmpty(const fs::path& file) {
  if (std::ofstream(file, std::ios::trunc)) {
    return {};
  }
  return fail("cannot write the timeline '" + file.string() + "': " + std::strerror(errno),
              "name a file in a folder that exists and can be written");
}

}  // namespace

Expected<void> writeTimelinePage(const fs::path& trace, const fs::path& page,
                                 const std::string& title) {
  ASSIGN_OR_RETURN(const Timeline timeline, readTimeline(trace));
  std::ofstream stream(page, std::ios::binary | std::ios::trunc);
  stream << timelinePage(timeline, title);
  if (stream.flush()) {
    return {};
  }
  return fail("cannot write the timeline '" + page.string() + "'",
              "name a file in a folder that exists and has space");
}

int launchWithTimeline(const host::LaunchOptions& options) {
  const fs::path trace = fs::path(options.timeline).replace_extension(".json");
  for (const fs::path& file : {options.timeline, trace}) {
    if (const auto created = createEmpty(file); !created) {
      return report(created.error());
    }
  }
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) {
    return report(
        {std::string("cannot start a process: ") + std::strerror(errno), "", kServiceFailed});
  }
  if (child == 0) {
    launchInChild(options, trace, parent);
  }
  forwardSignalsTo(child);
  const int status = waitForEnd(child);
  const std::string exitText = describeExit(status);
  if (workstation::startTrace(trace.string())) {
    mark("the application's process " + exitText);
  }
  const std::string title = options.appId + " " + exitText;
  if (const auto written = writeTimelinePage(trace, options.timeline, title); !written) {
    report(written.error());
  }
  if (const auto closed = closeTrace(trace); !closed) {
    report(closed.error());
  }
  return exitLikeChild(status);
}

}  // namespace quillon::timeline
