#include "quillon/zone/holder.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"
#include "quillon/device/device_root.h"

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;

// The holder's report to the process that started it: this byte if the zone runs, else the exit
// status as one byte, followed by "WHAT\0REMEDY". The report is empty if the holder was killed.
constexpr char kRuns = '\0';

tl::unexpected<Failure> stepFailed(const std::string& step) {
  return fail(kNoNamespace, {"cannot " + step + ": " + std::strerror(errno), ""});
}

// Turns the device root's view, which this process has entered, into a zone.
Expected<void> becomeZone() {
  if (unshare(CLONE_NEWUTS | CLONE_NEWIPC) != 0) {
    return stepFailed("create the namespaces of the zone");
  }
  if (umount2(workstation::kZoneDirectory, MNT_DETACH) != 0) {
    return stepFailed("hide '" + std::string(workstation::kZoneDirectory) + "' in the zone");
  }
  return {};
}

// Closes all descriptors except `first` and `second`, so that a reader of our output sees its end
// while the zone runs.
void closeOthers(int first, int second) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    dup2(null, stream);
  }
  unsigned from = STDERR_FILENO + 1;
  for (const int kept : {std::min(first, second), std::max(first, second)}) {
    if (static_cast<unsigned>(kept) > from) {
      close_range(from, static_cast<unsigned>(kept) - 1, 0);
    }
    from = static_cast<unsigned>(kept) + 1;
  }
  close_range(from, UINT_MAX, 0);
}

// Ends the process. The process that started it reports the failure.
[[noreturn]] void abandon(int report, const Failure& failure) {
  writeAll(report, static_cast<char>(failure.status) + failure.what + '\0' + failure.remedy);
  _exit(failure.status);
}

void nameProcess(const std::string& name) {
  prctl(PR_SET_NAME, ("zone " + name).c_str());
  [[maybe_unused]] const int result = chdir("/");
}

[[noreturn]] void waitForEnd() {
  sigset_t end;
  sigemptyset(&end);
  sigaddset(&end, SIGTERM);
  for (int signal = 0; signal != SIGTERM;) {
    sigwait(&end, &signal);
  }
  _exit(0);
}

// Blocks the signals of the terminal. SIGTERM is blocked, too, and accepted by waitForEnd().
void blockSignals() {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
}

// Returns the descriptor of the zone's state, which keeps this process the holder.
Expected<Descriptor> makeZone(const fs::path& device, const std::string& name,
                              const std::vector<fs::path>& visible, const StateFolder& states,
                              int report) {
  RETURN_IF_FAILED(device::enter(device, {visible, {}}));
  RETURN_IF_FAILED(becomeZone());
  nameProcess(name);
  closeOthers(report, states.descriptor());
  return states.hold(name);
}

[[noreturn]] void hold(const fs::path& device, const std::string& name,
                       const std::vector<fs::path>& visible, const StateFolder& states,
                       int report) {
  setsid();
  blockSignals();
  const auto state = makeZone(device, name, visible, states, report);
  if (!state) {
    abandon(report, state.error());
  }
  writeAll(report, std::string(1, kRuns));
  close(report);
  close(states.descriptor());
  waitForEnd();
}

Failure failureIn(const std::string& report) {
  if (report.empty()) {
    return {"the zone's holder was killed before the zone was complete", "start it again"};
  }
  const std::size_t end = std::min(report.find('\0', 1), report.size());
  return {report.substr(1, end - 1), report.substr(std::min(end + 1, report.size())),
          static_cast<ExitStatus>(report[0])};
}

}  // namespace

Expected<pid_t> startHolder(const fs::path& device, const std::string& name,
                            const std::vector<fs::path>& visible, const StateFolder& states) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return stepFailed("start the zone's holder");
  }
  const Descriptor reader(ends[0]);
  Descriptor writer(ends[1]);
  const pid_t holder = fork();
  if (holder < 0) {
    return stepFailed("start the zone's holder");
  }
  if (holder == 0) {
    close(reader.get());
    hold(device, name, visible, states, writer.get());
  }
  writer.reset();
  const std::string report = readAll(reader.get());
  if (report == std::string(1, kRuns)) {
    return holder;
  }
  waitpid(holder, nullptr, 0);
  return tl::unexpected(failureIn(report));
}

}  // namespace quillon::zone
