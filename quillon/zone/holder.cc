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

#include "quillon/device/device_root.h"

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;

// The holder's report to the process that started it: this byte when the zone runs, else the exit
// status, then "WHAT\0REMEDY". Nothing at all when it was killed.
constexpr char kRuns = '\0';

tl::unexpected<Failure> stepFailed(const std::string& step) {
  return fail(kNoNamespace, {"cannot " + step + ": " + std::strerror(errno), ""});
}

Expected<void> enterDevice(const fs::path& device, const std::vector<fs::path>& visible) {
  if (auto entered = device::enter(device, {visible, {}}); !entered) {
    return tl::unexpected(entered.error());
  }
  return {};
}

// What makes the device root's view, which is this process's own already, a zone.
Expected<void> becomeZone() {
  if (::unshare(CLONE_NEWUTS | CLONE_NEWIPC) != 0) {
    return stepFailed("make namespaces for the zone");
  }
  if (::umount2(workstation::kZoneDirectory, MNT_DETACH) != 0) {
    return stepFailed("hide '" + std::string(workstation::kZoneDirectory) + "' in the zone");
  }
  return {};
}

// Keeps `first` and `second` only: whoever waits for the end of our output must not wait for us.
void closeOthers(int first, int second) {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    ::dup2(null, stream);
  }
  unsigned from = STDERR_FILENO + 1;
  for (const int kept : {std::min(first, second), std::max(first, second)}) {
    if (static_cast<unsigned>(kept) > from) {
      ::close_range(from, static_cast<unsigned>(kept) - 1, 0);
    }
    from = static_cast<unsigned>(kept) + 1;
  }
  ::close_range(from, UINT_MAX, 0);
}

void tell(int report, const std::string& text) {
  [[maybe_unused]] const ssize_t written = ::write(report, text.data(), text.size());
}

[[noreturn]] void giveUp(int report, const Failure& failure) {
  tell(report, static_cast<char>(failure.status) + failure.what + '\0' + failure.remedy);
  ::_exit(failure.status);
}

void nameProcess(const std::string& name) {
  ::prctl(PR_SET_NAME, ("zone " + name).c_str());
  [[maybe_unused]] const int result = ::chdir("/");
}

[[noreturn]] void waitForEnd() {
  sigset_t end;
  sigemptyset(&end);
  sigaddset(&end, SIGTERM);
  for (int signal = 0; signal != SIGTERM;) {
    ::sigwait(&end, &signal);
  }
  ::_exit(0);
}

// From here on only SIGTERM ends this process, in an orderly way; the terminal's signals do not.
void blockSignals() {
  sigset_t all;
  sigfillset(&all);
  ::sigprocmask(SIG_SETMASK, &all, nullptr);
}

[[noreturn]] void hold(const fs::path& device, const std::string& name,
                       const std::vector<fs::path>& visible, const StateFolder& states,
                       int report) {
  ::setsid();
  blockSignals();
  if (auto entered = enterDevice(device, visible); !entered) {
    giveUp(report, entered.error());
  }
  if (auto made = becomeZone(); !made) {
    giveUp(report, made.error());
  }
  nameProcess(name);
  closeOthers(report, states.descriptor());
  if (auto written = states.write(name); !written) {
    giveUp(report, written.error());
  }
  tell(report, std::string(1, kRuns));
  ::close(report);
  ::close(states.descriptor());
  waitForEnd();
}

std::string readAll(int descriptor) {
  std::string text;
  char piece[512];
  for (ssize_t length = 1; length != 0;) {
    length = ::read(descriptor, piece, sizeof piece);
    if (length < 0 && errno != EINTR) {
      break;
    }
    text.append(piece, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  }
  return text;
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
  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) {
    return stepFailed("start the zone's holder");
  }
  const pid_t holder = ::fork();
  if (holder == 0) {
    ::close(report[0]);
    hold(device, name, visible, states, report[1]);
  }
  const int error = errno;
  ::close(report[1]);
  const std::string told = holder < 0 ? std::string() : readAll(report[0]);
  ::close(report[0]);
  if (holder < 0) {
    errno = error;
    return stepFailed("start the zone's holder");
  }
  if (told == std::string(1, kRuns)) {
    return holder;
  }
  ::waitpid(holder, nullptr, 0);
  return tl::unexpected(failureIn(told));
}

}  // namespace quillon::zone
