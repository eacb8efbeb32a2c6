#include "tests/system/launch/running_probe.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <thread>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kAnswers[] = "/tmp/answers";

[[noreturn]] void become(const fs::path& device, const std::string& type,
                         const std::vector<std::string>& environment, int questions,
                         const fs::path& errors) {
  dup2(questions, STDIN_FILENO);
  const int file = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(file, STDERR_FILENO);
  dup2(file, STDOUT_FILENO);
  for (const std::string& variable : environment) {
    putenv(const_cast<char*>(variable.c_str()));
  }
  const std::string quillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
  execl(quillon.c_str(), "quillon", "launch", "--device", device.c_str(), "--type", type.c_str(),
        kProbe, "--", "--answers", kAnswers, nullptr);
  _exit(127);
}

bool hasEnded(pid_t child) {
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
  return info.si_pid != 0;
}

}  // namespace

bool eventually(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

RunningProbe::RunningProbe(const fs::path& device, const std::string& type,
                           const std::vector<std::string>& environment)
    : answers_(device / fs::path(kAnswers).relative_path()), errors_(device / "tmp/errors") {
  fs::remove(answers_);
  int pipe[2];
  if (pipe2(pipe, O_CLOEXEC) != 0) {
    return;
  }
  questions_ = pipe[1];
  std::vector<std::string> all = environment;
  all.emplace_back(kRuntimeSanitizerOptions);
  pid_ = fork();
  if (pid_ == 0) {
    become(device, type, all, pipe[0], errors_);
  }
  close(pipe[0]);
  answer();  // "ready"
}

RunningProbe::~RunningProbe() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    quit();
  }
}

std::string RunningProbe::ask(const std::string& question) {
  const std::string line = question + "\n";
  if (::write(questions_, line.data(), line.size()) < 0) {
    return "(no answer)";
  }
  return answer();
}

int RunningProbe::quit() {
  close(questions_);
  questions_ = -1;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string RunningProbe::errors() const { return contentOf(errors_); }

std::vector<std::string> RunningProbe::lines() const {
  std::ifstream file(answers_);
  std::vector<std::string> result;
  // A line without a line break is still being written.
  for (std::string line; std::getline(file, line) && !file.eof();) {
    result.push_back(line);
  }
  return result;
}

std::string RunningProbe::answer() {
  const auto answered = [&] { return lines().size() > read_; };
  if (!eventually([&] { return answered() || hasEnded(pid_); }) || !answered()) {
    return "(no answer)";
  }
  return lines()[read_++];
}

}  // namespace quillon::test
