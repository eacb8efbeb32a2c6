#include "tests/system/torture/traced_process.h"

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <system_error>

namespace quillon::torture {
namespace {

constexpr int kTracingRefused = 99;
constexpr int kSystemCallStop = SIGTRAP | 0x80;

#if defined(__x86_64__)
void replaceNumber(pid_t process, std::int64_t number) {
  ptrace(PTRACE_POKEUSER, process, offsetof(user_regs_struct, orig_rax), number);
}

void replaceResult(pid_t process, std::int64_t result) {
  ptrace(PTRACE_POKEUSER, process, offsetof(user_regs_struct, rax), result);
}
#elif defined(__aarch64__)
void replaceNumber(pid_t process, std::int64_t number) {
  int value = static_cast<int>(number);
  iovec part{&value, sizeof value};
  ptrace(PTRACE_SETREGSET, process, NT_ARM_SYSTEM_CALL, &part);
}

void replaceResult(pid_t process, std::int64_t result) {
  user_regs_struct registers{};
  iovec part{&registers, sizeof registers};
  ptrace(PTRACE_GETREGSET, process, NT_PRSTATUS, &part);
  registers.regs[0] = static_cast<unsigned long long>(result);
  ptrace(PTRACE_SETREGSET, process, NT_PRSTATUS, &part);
}
#else
#error "say how this machine passes the number and the result of a system call"
#endif

class Tracer {
 public:
  Tracer(pid_t child, const Follower& followed) : process(child), follower(followed) {}

  TraceResult run() {
    int status = 0;
    waitpid(process, &status, 0);
    if (WIFEXITED(status)) {
      return refused();
    }
    ptrace(PTRACE_SETOPTIONS, process, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int signal = 0;
    while (!result.killed) {
      ptrace(PTRACE_SYSCALL, process, nullptr, signal);
      waitpid(process, &status, 0);
      if (!WIFSTOPPED(status)) {
        break;
      }
      signal = stopped(WSTOPSIG(status));
    }
    if (!WIFSTOPPED(status) && !result.killed) {
      result.ending = endingOf(status);
    }
    return result;
  }

 private:
  static TraceResult refused() {
    TraceResult refusal;
    refusal.allowed = false;
    refusal.reason = "the machine does not allow ptrace(2)";
    return refusal;
  }

  static std::string endingOf(int status) {
    if (WIFSIGNALED(status)) {
      return "signal " + std::to_string(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == 0 ? "" : "status " + std::to_string(WEXITSTATUS(status));
  }

  // Returns the signal to deliver to the child.
  int stopped(int signal) {
    if (signal != kSystemCallStop) {
      return signal;
    }
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      entered(info);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
      left(info);
    }
    return 0;
  }

  void entered(const __ptrace_syscall_info& info) {
    call = {process, call.index + 1, info.entry.nr, {}};
    std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.arguments.begin());
    verdict = follower.atEntry(call);
    if (verdict.kind == Verdict::Kind::kKill) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
      result.killed = true;
    } else if (verdict.kind == Verdict::Kind::kFail) {
      replaceNumber(process, -1);
    }
  }

  void left(const __ptrace_syscall_info& info) {
    std::int64_t returned = info.exit.rval;
    if (verdict.kind == Verdict::Kind::kFail) {
      returned = -verdict.error;
      replaceResult(process, returned);
    }
    if (follower.atExit) {
      follower.atExit(call, returned);
    }
  }

  pid_t process;
  const Follower& follower;
  SystemCall call{};
  Verdict verdict;
  TraceResult result;
};

}  // namespace

std::string SystemCall::textAt(std::size_t argument) const {
  constexpr std::size_t kPage = 4096;
  std::string text;
  std::uint64_t address = arguments.at(argument);
  while (text.size() < PATH_MAX) {
    char part[kPage];
    iovec local{part, sizeof part};
    // Reads up to the end of the page, because the next page may not be mapped.
    iovec remote{reinterpret_cast<void*>(address), kPage - address % kPage};
    const ssize_t size = process_vm_readv(process, &local, 1, &remote, 1, 0);
    if (size <= 0) {
      break;
    }
    const std::size_t length = strnlen(part, static_cast<std::size_t>(size));
    text.append(part, length);
    if (length < static_cast<std::size_t>(size)) {
      break;
    }
    address += length;
  }
  return text;
}

std::string SystemCall::bytesAt(std::size_t argument, std::size_t size) const {
  std::string bytes(size, '\0');
  iovec local{bytes.data(), size};
  iovec remote{reinterpret_cast<void*>(arguments.at(argument)), size};
  const ssize_t length = process_vm_readv(process, &local, 1, &remote, 1, 0);
  bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return bytes;
}

TraceResult follow(const std::function<void()>& work, const Follower& follower) {
  const pid_t child = fork();
  if (child < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
      _exit(kTracingRefused);
    }
    raise(SIGSTOP);
    work();
    _exit(0);
  }
  return Tracer(child, follower).run();
}

}  // namespace quillon::torture
