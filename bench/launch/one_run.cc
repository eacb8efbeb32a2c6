#include "bench/launch/one_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <string>

#include "quillon/device/mounts.h"
#include "quillon/launchpad/client/client.h"
#include "workstation/log_config.h"

extern char** environ;

namespace quillon::bench {
namespace {

using quillon::Descriptor;
using Clock = std::chrono::steady_clock;

constexpr std::string_view kReady = "ready ";
constexpr char kWaitArgument[] = "wait";

struct Pipe {
  Descriptor read;
  Descriptor write;
};

Pipe makePipe() {
  std::array<int, 2> ends{-1, -1};
  [[maybe_unused]] const int made = pipe2(ends.data(), O_CLOEXEC);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) {
    pointers.push_back(const_cast<char*>(word.c_str()));
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> environmentOf(const Contender& contender) {
  std::vector<std::string> all = contender.environment;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    all.emplace_back(*variable);
  }
  return all;
}

// Requests a launch from the launch pad and exits with the application's status.
[[noreturn]] void becomeClient(const Contender& contender, Task task,
                               const std::array<int, 3>& streams, int requestStart) {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    dup2(streams[static_cast<size_t>(fd)], fd);
  }
  host::LaunchOptions options;
  options.device = contender.request.device;
  options.appId = contender.request.appId;
  options.raw = true;
  if (task == Task::kMemory) {
    options.arguments.emplace_back(kWaitArgument);
  }
  const Clock::time_point start = Clock::now();
  const launchpad::LaunchOutcome asked = launchpad::requestLaunch(
      options, workstation::currentLog(), contender.request.quillon.string());
  const bool told = write(requestStart, &start, sizeof start) == sizeof start;
  _exit(told ? asked.status.value_or(1) : 1);
}

// A running contender and our ends of its streams.
class Running {
 public:
  Running(const Contender& contender, Task task);
  bool readUntilReady();
  bool end();  // false if it has not sent the time of its request
  pid_t application() const;
  const std::string& text() const { return text_; }
  double secondsUntilReady() const {
    return std::chrono::duration<double>(ready_ - start_).count();
  }

 private:
  void spawn(const Contender& contender, Task task, int input, int output);
  void ask(const Contender& contender, Task task, Pipe& input, Pipe& output);
  bool readMore();

  Descriptor input_;
  Descriptor output_;
  pid_t process_ = -1;
  std::string text_;
  Clock::time_point start_;
  Descriptor requestStart_;
  Clock::time_point ready_;
};

Running::Running(const Contender& contender, Task task) {
  Pipe in = makePipe();
  Pipe out = makePipe();
  if (contender.request.appId.empty()) {
    spawn(contender, task, in.read.get(), out.write.get());
  } else {
    ask(contender, task, in, out);
  }
  input_ = std::move(in.write);
  output_ = std::move(out.read);
}

void Running::spawn(const Contender& contender, Task task, int input, int output) {
  std::vector<std::string> command = contender.command;
  if (task == Task::kMemory) {
    command.emplace_back(kWaitArgument);
  }
  const std::vector<char*> arguments = pointersTo(command);
  const std::vector<std::string> variables = environmentOf(contender);
  const std::vector<char*> environment = pointersTo(variables);
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_adddup2(&streams, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&streams, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&streams, output, STDERR_FILENO);
  start_ = Clock::now();
  if (posix_spawn(&process_, arguments[0], &streams, nullptr, arguments.data(),
                  environment.data()) != 0) {
    process_ = -1;
  }
  posix_spawn_file_actions_destroy(&streams);
}

// Only the request is timed: the client is forked before. It sends the time of its request.
void Running::ask(const Contender& contender, Task task, Pipe& input, Pipe& output) {
  Pipe start = makePipe();
  process_ = fork();
  if (process_ == 0) {
    input.write = Descriptor();
    output.read = Descriptor();
    const int written = output.write.get();
    becomeClient(contender, task, {input.read.get(), written, written}, start.write.get());
  }
  requestStart_ = std::move(start.read);
}

bool Running::readMore() {
  std::array<char, 4096> bytes{};
  const ssize_t count = read(output_.get(), bytes.data(), bytes.size());
  if (count > 0) {
    text_.append(bytes.data(), static_cast<size_t>(count));
  }
  return count > 0;
}

bool Running::readUntilReady() {
  while (process_ >= 0 && text_.find(kReady) == text_.npos) {
    if (!readMore()) {
      return false;
    }
  }
  ready_ = Clock::now();
  // Read the process id after it.
  while (text_.find('\n', text_.find(kReady)) == text_.npos && readMore()) {
  }
  return process_ >= 0;
}

pid_t Running::application() const {
  return std::atoi(text_.c_str() + text_.find(kReady) + kReady.size());
}

bool Running::end() {
  input_ = Descriptor();
  while (readMore()) {
  }
  if (process_ >= 0) {
    waitpid(process_, nullptr, 0);
  }
  return !requestStart_ || read(requestStart_.get(), &start_, sizeof start_) == sizeof start_;
}

}  // namespace

Run runOnce(const Contender& contender, Task task) {
  Running running(contender, task);
  Run run;
  run.ready = running.readUntilReady();
  if (run.ready && task == Task::kMemory) {
    run.memory = memoryOf(running.application());
  }
  run.ready = running.end() && run.ready;
  if (run.ready) {
    run.seconds = running.secondsUntilReady();
  }
  running.text().copy(run.text.data(), run.text.size() - 1);
  return run;
}

}  // namespace quillon::bench
