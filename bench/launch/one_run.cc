#include "bench/launch/one_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <string>

#include "bench/launch/words.h"
#include "quillon/base/descriptor.h"

namespace quillon::bench {
namespace {

using quillon::Descriptor;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kReady = "ready ";

// Returns the position of the application's line in the text, npos if it is not there yet. The line
// is the word and the application's process id. Messages of the launcher may contain the word, too.
std::size_t readyIn(const std::string& text) {
  std::size_t at = text.find(kReady);
  while (at != text.npos &&
         std::isdigit(static_cast<unsigned char>(text[at + kReady.size()])) == 0) {
    at = text.find(kReady, at + 1);
  }
  return at;
}

constexpr char kWaitArgument[] = "wait";

// The streams of a contender: our ends and its ends.
struct Streams {
  Descriptor input;
  Descriptor output;
  Descriptor theirInput;
  Descriptor theirOutput;
};

void makePipe(Descriptor& read, Descriptor& write) {
  std::array<int, 2> ends{-1, -1};
  [[maybe_unused]] const int made = pipe2(ends.data(), O_CLOEXEC);
  read = Descriptor(ends[0]);
  write = Descriptor(ends[1]);
}

Streams makePipes() {
  Streams streams;
  makePipe(streams.theirInput, streams.input);
  makePipe(streams.output, streams.theirOutput);
  return streams;
}

// A pseudo terminal. It becomes nobody's controlling terminal.
Streams makeTerminal() {
  Streams streams;
  streams.input = Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  grantpt(streams.input.get());
  unlockpt(streams.input.get());
  streams.theirInput =
      Descriptor(ioctl(streams.input.get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
  streams.output = Descriptor(fcntl(streams.input.get(), F_DUPFD_CLOEXEC, 0));
  streams.theirOutput = Descriptor(fcntl(streams.theirInput.get(), F_DUPFD_CLOEXEC, 0));
  return streams;
}

// A running contender and our ends of its streams.
class Running {
 public:
  Running(const Contender& contender, Task task, const Asker* asker);
  bool readUntilReady();
  bool end();  // false if the asker has not sent the time of its request
  pid_t application() const;
  const std::string& text() const { return text_; }
  Clock::time_point start() const { return start_; }
  Clock::time_point ready() const { return ready_; }

 private:
  void spawn(const Contender& contender, const Streams& streams);
  bool readMore();

  const Asker* const asker_;
  const bool waits_;  // the application waits for the end of its input
  Streams streams_;
  bool runs_ = false;
  pid_t process_ = -1;
  std::string text_;
  Clock::time_point start_;
  Clock::time_point ready_;
};

Running::Running(const Contender& contender, Task task, const Asker* asker)
    : asker_(asker),
      waits_(task == Task::kMemory),
      streams_(contender.onTerminal ? makeTerminal() : makePipes()) {
  if (asker == nullptr) {
    spawn(contender, streams_);
  } else {
    runs_ = asker->request(waits_, streams_.theirInput.get(), streams_.theirOutput.get());
  }
  streams_.theirInput.reset();
  streams_.theirOutput.reset();
}

void Running::spawn(const Contender& contender, const Streams& streams) {
  std::vector<std::string> command = contender.command;
  if (waits_) {
    command.emplace_back(kWaitArgument);
  }
  const std::vector<char*> arguments = pointersTo(command);
  const std::vector<std::string> variables = environmentOf(contender);
  const std::vector<char*> environment = pointersTo(variables);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, streams.theirInput.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, streams.theirOutput.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, streams.theirOutput.get(), STDERR_FILENO);
  start_ = Clock::now();
  runs_ = posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(),
                      environment.data()) == 0;
  posix_spawn_file_actions_destroy(&actions);
}

bool Running::readMore() {
  std::array<char, 4096> bytes{};
  const ssize_t count = read(streams_.output.get(), bytes.data(), bytes.size());
  if (count > 0) {
    text_.append(bytes.data(), static_cast<size_t>(count));
  }
  return count > 0;
}

bool Running::readUntilReady() {
  while (runs_ && readyIn(text_) == text_.npos) {
    if (!readMore()) {
      return false;
    }
  }
  ready_ = Clock::now();
  // Read the process id after it.
  while (text_.find('\n', readyIn(text_)) == text_.npos && readMore()) {
  }
  return runs_;
}

pid_t Running::application() const {
  return std::atoi(text_.c_str() + readyIn(text_) + kReady.size());
}

bool Running::end() {
  streams_.input.reset();
  while (readMore()) {
  }
  if (asker_ != nullptr) {
    const auto start = asker_->awaitEnd();
    start_ = start.value_or(start_);
    return start.has_value();
  }
  if (runs_) {
    waitpid(process_, nullptr, 0);
  }
  return true;
}

}  // namespace

Run runOnce(const Contender& contender, Task task, const Asker* asker) {
  Running running(contender, task, asker);
  Run run;
  run.ready = running.readUntilReady();
  if (run.ready && task == Task::kMemory) {
    run.memory = memoryOf(running.application());
  }
  run.ready = running.end() && run.ready;
  if (run.ready) {
    run.start = running.start();
    run.seconds = std::chrono::duration<double>(running.ready() - running.start()).count();
  }
  running.text().copy(run.text.data(), run.text.size() - 1);
  return run;
}

}  // namespace quillon::bench
