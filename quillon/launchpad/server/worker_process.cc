#include "quillon/launchpad/server/worker_process.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "quillon/launchpad/server/debugger_files.h"

namespace quillon::launchpad {
namespace {

// pidfd_open(2) and friends have no wrapper in older C libraries.
constexpr idtype_t kByPidfd = static_cast<idtype_t>(3);  // P_PIDFD

}  // namespace

std::optional<Process> startProcess(const std::function<void(Descriptor)>& become) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return {};
  Descriptor own(ends[0]);
  Descriptor other(ends[1]);
  const pid_t pid = fork();
  if (pid == 0) {
    own.reset();
    become(std::move(other));
    _exit(EXIT_FAILURE);
  }
  if (pid < 0) return {};
  Process process;
  process.pid = pid;
  process.channel = std::move(own);
  process.pidfd = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  if (!process.pidfd) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return {};
  }
  return process;
}

void killProcess(const Process& process) {
  syscall(SYS_pidfd_send_signal, process.pidfd.get(), SIGKILL, nullptr, 0);
}

std::optional<ExitState> endingOf(const Process& process) {
  siginfo_t info{};
  const auto id = static_cast<id_t>(process.pidfd.get());
  if (waitid(kByPidfd, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0)
    return ExitState{true, SIGKILL};
  if (info.si_pid == 0) return {};
  removeDebuggerFilesOf(process.pid);
  waitid(kByPidfd, id, &info, WEXITED | WNOHANG);
  return ExitState{info.si_code != CLD_EXITED, info.si_status};
}

}  // namespace quillon::launchpad
