#include "tests/support/program.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "tests/support/execute.h"

namespace quillon::test {
namespace {

// The content of a memory file.
std::string bytesOf(int fd) { return contentsOf("/proc/self/fd/" + std::to_string(fd)); }

// The tests must not depend on QUILLON_ variables of the caller's environment.
void forgetOwnVariables() {
  std::vector<std::string> names;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (text.starts_with("QUILLON_")) {
      names.push_back(text.substr(0, text.find('=')));
    }
  }
  for (const std::string& name : names) {
    unsetenv(name.c_str());
  }
}

}  // namespace

Program::~Program() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  if (outFd_ >= 0) {
    close(outFd_);
  }
  if (errFd_ >= 0) {
    close(errFd_);
  }
}

Program& Program::with(const std::string& variable, const std::string& value) {
  variables_[variable] = value;
  return *this;
}

void Program::become() {
  dup2(outFd_, STDOUT_FILENO);
  dup2(errFd_, STDERR_FILENO);
  forgetOwnVariables();
  for (const auto& [name, value] : variables_) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  execute(command_);
}

void Program::start() {
  outFd_ = memfd_create("out", MFD_CLOEXEC);
  errFd_ = memfd_create("err", MFD_CLOEXEC);
  // Otherwise processes that write at the same time would overwrite each other's lines.
  for (const int fd : {outFd_, errFd_}) {
    fcntl(fd, F_SETFL, O_APPEND);
  }
  process_ = fork();
  if (process_ == 0) {
    become();
  }
}

bool Program::waitForOutput(const std::string& text) {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  while (bytesOf(outFd_).find(text) == std::string::npos) {
    if (steady_clock::now() > end) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void Program::terminate() { kill(process_, SIGTERM); }

Finished Program::finish() {
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  Finished finished{0, bytesOf(outFd_), bytesOf(errFd_)};
  finished.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return finished;
}

Finished run(const std::vector<std::string>& command,
             const std::map<std::string, std::string>& variables) {
  Program program(command);
  for (const auto& [name, value] : variables) {
    program.with(name, value);
  }
  program.start();
  return program.finish();
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& contents) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace quillon::test
