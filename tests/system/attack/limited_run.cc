#include "tests/system/attack/limited_run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/execute.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/launch/running_probe.h"

namespace quillon::test {
namespace {

[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::filesystem::path& output) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC;
  setpgid(0, 0);
  dup2(open((output / "out").c_str(), kFlags, 0600), STDOUT_FILENO);
  dup2(open((output / "err").c_str(), kFlags, 0600), STDERR_FILENO);
  putenv(const_cast<char*>(kRuntimeSanitizerOptions));
  setenv("QUILLON_LOG", "none", 1);
  execute(command);
}

}  // namespace

CommandResult runLimited(const std::vector<std::string>& command, std::chrono::seconds limit) {
  const TemporaryDirectory output;
  const pid_t child = fork();
  if (child == 0) {
    become(command, output.path());
  }
  int status = 0;
  const bool hasEnded =
      eventually([&] { return waitpid(child, &status, WNOHANG) == child; }, limit);
  kill(-child, SIGKILL);
  if (!hasEnded) {
    waitpid(child, &status, 0);
  }
  CommandResult result;
  result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  result.status = hasEnded ? result.status : kHangs;
  result.out = contentOf(output.path() / "out");
  result.err = contentOf(output.path() / "err");
  return result;
}

}  // namespace quillon::test
