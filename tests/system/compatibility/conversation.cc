#include "tests/system/compatibility/conversation.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string_view>

#include "quillon/base/descriptor.h"
#include "tests/support/execute.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

constexpr char kProcess[] = "process ";  // before a process id in standard output
constexpr winsize kWindow{24, 80, 0, 0};

// The descriptors of a program, and those of its partner.
struct Streams {
  Descriptor input;  // of the program
  Descriptor output;
  Descriptor toProgram;
  Descriptor fromProgram;
};

Streams makePipes() {
  std::array<int, 2> input{};
  std::array<int, 2> output{};
  if (pipe2(input.data(), O_CLOEXEC) != 0 || pipe2(output.data(), O_CLOEXEC) != 0) {
    abort();
  }
  return {Descriptor(input[0]), Descriptor(output[1]), Descriptor(input[1]), Descriptor(output[0])};
}

Streams makeTerminal() {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0 ||
      ioctl(terminal, TIOCSWINSZ, &kWindow) != 0) {
    abort();
  }
  const int end = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  // A key may be typed before the program turns the echo off.
  termios settings{};
  tcgetattr(end, &settings);
  settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(end, TCSANOW, &settings);
  return {Descriptor(end), Descriptor(fcntl(end, F_DUPFD_CLOEXEC, 0)),
          Descriptor(fcntl(terminal, F_DUPFD_CLOEXEC, 0)), Descriptor(terminal)};
}

[[noreturn]] void become(const Conversation& conversation, const Streams& streams, int errors) {
  if (conversation.onTerminal) {
    setsid();
    ioctl(streams.input.get(), TIOCSCTTY, 0);
    errors = streams.output.get();
  }
  dup2(streams.input.get(), STDIN_FILENO);
  dup2(streams.output.get(), STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  for (const std::string& variable : conversation.environment) {
    putenv(const_cast<char*>(variable.c_str()));
  }
  if (chdir(conversation.directory.c_str()) == 0) {
    execute(conversation.command);
  }
  _exit(127);
}

// A program that runs, and what it has printed.
class Partner {
 public:
  Partner(const Conversation& conversation, Streams streams, int errors)
      : conversation_(conversation), streams_(std::move(streams)), pid_(fork()) {
    if (pid_ == 0) {
      become(conversation, streams_, errors);
    }
    streams_.input.reset();
    streams_.output.reset();
  }

  CommandResult run() {
    takeSteps();
    while (read()) {
      takeSteps();
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), output_ + traced_,
            ""};
  }

 private:
  // Waits for more output. Returns false at its end.
  bool read() {
    pollfd readable{streams_.fromProgram.get(), POLLIN, 0};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end_ - steady_clock::now());
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0) {
      kill(pid_, SIGKILL);
      output_ += "(killed: it neither printed what the test awaits nor ended)\n";
      return false;
    }
    std::array<char, 4096> part{};
    // Of a terminal that no process has open any more, read() fails.
    const ssize_t size = ::read(streams_.fromProgram.get(), part.data(), part.size());
    if (size <= 0) {
      return false;
    }
    output_.append(part.data(), static_cast<size_t>(size));
    return true;
  }

  void takeSteps() {
    const std::vector<Step>& steps = conversation_.steps;
    for (; next_ < steps.size(); ++next_) {
      const Step& step = steps[next_];
      const size_t at = output_.find(step.awaited, seen_);
      if (at == std::string::npos) {
        return;
      }
      seen_ = at + step.awaited.size();
      take(step);
    }
    const bool isSignalled = !steps.empty() && steps.back().signal != 0;
    if (!conversation_.onTerminal && !isSignalled) {
      streams_.toProgram.reset();
    }
  }

  void take(const Step& step) {
    if (step.signal != 0) {
      kill(pid_, step.signal);
    }
    if (step.traces) {
      const size_t at = output_.find(kProcess);
      traced_ =
          conversation_.trace(std::atoi(output_.c_str() + at + std::string_view(kProcess).size()));
    }
    if (!step.typed.empty() &&
        ::write(streams_.toProgram.get(), step.typed.data(), step.typed.size()) < 0) {
      output_ += "(the program does not read its input)\n";
    }
  }

  const Conversation& conversation_;
  Streams streams_;
  pid_t pid_;
  std::string output_;
  std::string traced_;
  size_t next_ = 0;  // index of the next step
  size_t seen_ = 0;  // how much of the output the steps have consumed
  steady_clock::time_point end_ = steady_clock::now() + std::chrono::minutes(1);
};

}  // namespace

CommandResult hold(const Conversation& conversation) {
  const TemporaryDirectory folder;
  const fs::path errors = folder.path() / "errors";
  const Descriptor errorFile(open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  Partner partner(conversation, conversation.onTerminal ? makeTerminal() : makePipes(),
                  errorFile.get());
  CommandResult result = partner.run();
  result.err = contentOf(errors);
  return result;
}

}  // namespace quillon::test
