#include "tests/support/terminal.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>

#include "tests/support/execute.h"

namespace quillon::test {
namespace {

[[noreturn]] void become(const std::vector<std::string>& command,
                         const std::vector<std::string>& environment) {
  for (const std::string& variable : environment) {
    putenv(const_cast<char*>(variable.c_str()));
  }
  execute(command);
}

}  // namespace

Terminal::Terminal(const std::vector<std::string>& command,
                   const std::vector<std::string>& environment) {
  winsize size{};
  size.ws_row = 24;
  size.ws_col = 80;
  process_ = forkpty(&master_, nullptr, nullptr, &size);
  if (process_ == 0) {
    become(command, environment);
  }
}

Terminal::~Terminal() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(master_);
}

void Terminal::type(const std::string& text) const {
  [[maybe_unused]] const ssize_t written = write(master_, text.data(), text.size());
}

bool Terminal::isCooked() const {
  termios settings{};
  constexpr tcflag_t kCooked = ICANON | ECHO | ISIG;
  return tcgetattr(master_, &settings) == 0 && (settings.c_lflag & kCooked) == kCooked;
}

// Returns false at the end of the output, and if there is none in time.
bool Terminal::readMore(int timeoutMs) {
  pollfd readable{master_, POLLIN, 0};
  if (poll(&readable, 1, timeoutMs) <= 0) {
    return false;
  }
  std::array<char, 4096> buffer{};
  const ssize_t count = read(master_, buffer.data(), buffer.size());
  if (count > 0) {
    output_.append(buffer.data(), static_cast<size_t>(count));
  }
  return count > 0;
}

bool Terminal::waitForOutput(const std::string& text) {
  constexpr int kTimeoutMs = 30'000;
  while (output_.find(text) == std::string::npos) {
    if (!readMore(kTimeoutMs)) {
      return false;
    }
  }
  return true;
}

int Terminal::finish() {
  constexpr int kTimeoutMs = 30'000;
  while (readMore(kTimeoutMs)) {
  }
  int status = 0;
  waitpid(process_, &status, 0);
  process_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace quillon::test
