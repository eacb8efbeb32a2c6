#include "tests/system/attack/confined.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

// Of landlock(7); older headers lack the network rules.
constexpr int kCreateRuleset = 444;
constexpr int kRestrictSelf = 446;
struct Ruleset {
  uint64_t handledFiles = 0;
  uint64_t handledNetwork = 0;
};
constexpr uint64_t kBindTcp = 1;
constexpr unsigned kQueryVersion = 1;
constexpr int kVersionWithNetwork = 4;

constexpr int kNotConfined = 126;
constexpr unsigned kTimeoutSeconds = 60;  // of a program that should have ended

}  // namespace

bool noNewPrivileges() { return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0; }

bool filterSystemCall(int number) {
  std::array<sock_filter, 4> program = {
      {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 1),
       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
       BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)}};
  const sock_fprog filter{program.size(), program.data()};
  return noNewPrivileges() && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) == 0;
}

bool hasLandlock() {
  return syscall(kCreateRuleset, nullptr, 0, kQueryVersion) >= kVersionWithNetwork;
}

bool enterLandlock() {
  const Ruleset rules{0, kBindTcp};
  const long ruleset = syscall(kCreateRuleset, &rules, sizeof rules, 0);
  // Root needs no NoNewPrivs, which would itself be a difference between two processes.
  return ruleset >= 0 && (syscall(kRestrictSelf, ruleset, 0) == 0 ||
                          (noNewPrivileges() && syscall(kRestrictSelf, ruleset, 0) == 0));
}

bool enterOwnNamespaces() {
  return unshare(geteuid() == 0 ? CLONE_NEWUTS : CLONE_NEWUSER | CLONE_NEWUTS) == 0;
}

bool dropAllCapabilities() {
  for (int capability = 0; capability <= CAP_LAST_CAP; ++capability) {
    prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);
  }
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  return syscall(SYS_capset, &header, none.data()) == 0;
}

CommandResult runConfined(const Confine& confine, const std::vector<std::string>& command) {
  const TemporaryDirectory output;
  const pid_t child = fork();
  if (child == 0) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC;
    dup2(open((output.path() / "out").c_str(), kFlags, 0600), STDOUT_FILENO);
    dup2(open((output.path() / "err").c_str(), kFlags, 0600), STDERR_FILENO);
    setenv("QUILLON_LOG", "none", 1);
    putenv(const_cast<char*>(kRuntimeSanitizerOptions));
    std::vector<char*> arguments;
    for (const std::string& word : command) {
      arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    alarm(kTimeoutSeconds);
    if (confine()) {
      execv(arguments[0], arguments.data());
    }
    _exit(kNotConfined);
  }
  int status = 0;
  waitpid(child, &status, 0);
  CommandResult result;
  result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  result.out = contentOf(output.path() / "out");
  result.err = contentOf(output.path() / "err");
  return result;
}

}  // namespace quillon::test
