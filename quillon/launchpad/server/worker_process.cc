#include "quillon/launchpad/server/worker_process.h"

#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "quillon/base/process.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/server/debugger_files.h"

namespace quillon::launchpad {
namespace {

// P_PIDFD, which older C libraries do not declare.
constexpr idtype_t kByPidfd = static_cast<idtype_t>(3);

}  // namespace

std::optional<WorkerProcess> startWorker(const std::function<void(Descriptor)>& runChild) {
  auto [outer, inner] = makeSocketPair();
  if (!outer) {
    return {};
  }
  const pid_t pid = fork();
  if (pid == 0) {
    outer.reset();
    runChild(std::move(inner));
    _exit(EXIT_FAILURE);
  }
  if (pid < 0) {
    return {};
  }
  WorkerProcess worker;
  worker.pid = pid;
  worker.channel = std::move(outer);
  worker.pidfd = openPidfd(pid);
  if (!worker.pidfd) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return {};
  }
  return worker;
}

void killWorker(const WorkerProcess& worker) {
  syscall(SYS_pidfd_send_signal, worker.pidfd.get(), SIGKILL, nullptr, 0);
}

std::optional<ExitState> reapWorker(const WorkerProcess& worker) {
  siginfo_t info{};
  const auto id = static_cast<id_t>(worker.pidfd.get());
  if (waitid(kByPidfd, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
    return ExitState{true, SIGKILL};
  }
  if (info.si_pid == 0) {
    return {};
  }
  removeDebuggerFilesOf(worker.pid);
  waitid(kByPidfd, id, &info, WEXITED | WNOHANG);
  return ExitState{info.si_code != CLD_EXITED, info.si_status};
}

}  // namespace quillon::launchpad
