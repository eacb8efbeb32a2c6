// A program that logs and traces. Each argument is a step:
//
//   log:PRIORITY:TAG:TEXT   logs one record
//   output:TEXT             logs a debug record in the form of captured application output
//   nul:TEXT                logs a debug record whose text is TEXT, a NUL byte and TEXT
//   long:N                  logs a debug record of N letters
//   replace-stderr          opens /dev/null as descriptor 2
//   threads:T:N             T threads write N numbered debug records each
//   forks:N                 forks N children that log once each, while a thread logs errors
//   last-error              prints lastErrorMessage()
//   last-errors             prints each of lastErrorMessages()
//   config                  prints currentLog() and openLogOfEnvironment(), one line each
//   errno                   prints whether logging and tracing preserve errno
//   begin:NAME  end  marker:TEXT
//   fork-in-span            forks a child that ends a span of its parent
//   name:TEXT               sets and prints the process name with prctl
//   bad-prctl               prints the result and errno of a marker and of an unknown option
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/dlog.h"
#include "platform/launch_marker.h"
#include "platform/trace.h"
#include "workstation/last_errors.h"
#include "workstation/log_config.h"

namespace {

using Words = std::vector<std::string>;

void replaceStderr() {
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, STDERR_FILENO);
  close(null);
}

void logFromThreads(int threads, int records) {
  std::vector<std::thread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([=] {
      for (int i = 0; i < records; ++i) {
        __dlog_print(0, DLOG_DEBUG, "T", "%d of thread %d %s\n", i, thread,
                     std::string(200, 'x').c_str());
      }
    });
  }
  for (std::thread& thread : running) {
    thread.join();
  }
}

void logFromForks(int children) {
  std::atomic<bool> stop = false;
  std::thread busy([&] {
    while (!stop) {
      __dlog_print(0, DLOG_ERROR, "P", "parent");
      std::this_thread::yield();  // lets fork(2) get the lock too
    }
  });
  for (int i = 0; i < children; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      __dlog_print(0, DLOG_ERROR, "C", "child");
      _exit(quillon::workstation::lastErrorMessage() == "child" ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::cout << (status == 0 ? "ok" : "failed") << '\n';
  }
  stop = true;
  busy.join();
}

std::string describe(const quillon::workstation::LogConfig& log) {
  std::string file;
  if (log.descriptor >= 0) {
    file = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(log.descriptor));
    file += (fcntl(log.descriptor, F_GETFD) & FD_CLOEXEC) != 0 ? " closed on exec" : "";
    file += log.descriptor >= 200 ? " high" : "";
  }
  return log.target + " " + std::to_string(log.level) + " " +
         std::to_string(static_cast<int>(log.applicationOutput)) + " " + file;
}

void printConfigs() {
  const auto client = quillon::workstation::openLogOfEnvironment();
  std::cout << describe(quillon::workstation::currentLog()) << '\n'
            << (client ? describe(*client) : "library needed") << '\n';
}

void printErrno() {
  errno = E2BIG;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // "%m" is an extension of the system's printf
  __dlog_print(0, DLOG_ERROR, "T", "%m\n");
#pragma GCC diagnostic pop
  trace_begin("span");
  trace_end();
  std::cout << (errno == E2BIG ? "kept" : "changed") << '\n';
}

void forkInSpan() {
  trace_begin("parent's");
  const pid_t child = fork();
  if (child == 0) {
    trace_end();
    trace_begin("child's");
    trace_end();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  trace_end();
}

void printName(const std::string& name) {
  std::array<char, 17> shown{};
  prctl(PR_SET_NAME, name.c_str());
  prctl(PR_GET_NAME, shown.data());
  std::cout << shown.data() << '\n';
}

void printBadPrctl() {
  const std::string text = "milestone";
  errno = 0;
  int result = prctl(PR_LAUNCH_MARKER, text.c_str(), text.size());
  std::cout << result << ' ' << (errno == EINVAL) << '\n';
  errno = 0;
  result = prctl(-12345, 0, 0, 0, 0);
  std::cout << result << ' ' << (errno == EINVAL) << '\n';
}

void mark(const std::string& text) { prctl(PR_LAUNCH_MARKER, text.c_str(), text.size()); }

// Splits at ":" into at most `count` words.
Words cut(const std::string& step, size_t count) {
  Words words;
  std::istringstream stream(step);
  std::string word;
  while (words.size() + 1 < count && std::getline(stream, word, ':')) {
    words.push_back(word);
  }
  if (std::getline(stream, word, '\0')) {
    words.push_back(word);
  }
  return words;
}

const std::map<std::string, std::pair<size_t, std::function<void(const Words&)>>> kSteps = {
    {"log",
     {4,
      [](const Words& w) { __dlog_print(0, std::stoi(w[1]), w[2].c_str(), "%s", w[3].c_str()); }}},
    {"output",
     {2,
      [](const Words& w) {
        __dlog_print(0, DLOG_DEBUG, "T", "%s: %s(%d) > \x1b[0m%s\x1b[0m\n", "log.cc",
                     "stdOutRedirect", 44, w[1].c_str());
      }}},
    {"nul",
     {2,
      [](const Words& w) {
        __dlog_print(0, DLOG_DEBUG, "T", "%s%c%s\n", w[1].c_str(), '\0', w[1].c_str());
      }}},
    {"long",
     {2,
      [](const Words& w) {
        __dlog_print(0, DLOG_DEBUG, "T", "%s",
                     std::string(static_cast<size_t>(std::stol(w[1])), 'y').c_str());
      }}},
    {"replace-stderr", {1, [](const Words&) { replaceStderr(); }}},
    {"threads", {3, [](const Words& w) { logFromThreads(std::stoi(w[1]), std::stoi(w[2])); }}},
    {"forks", {2, [](const Words& w) { logFromForks(std::stoi(w[1])); }}},
    {"last-errors",
     {1,
      [](const Words&) {
        for (const std::string& message : quillon::workstation::lastErrorMessages()) {
          std::cout << message << '\n';
        }
      }}},
    {"last-error",
     {1, [](const Words&) { std::cout << quillon::workstation::lastErrorMessage() << '\n'; }}},
    {"config", {1, [](const Words&) { printConfigs(); }}},
    {"errno", {1, [](const Words&) { printErrno(); }}},
    {"begin", {2, [](const Words& w) { trace_begin(w[1].c_str()); }}},
    {"end", {1, [](const Words&) { trace_end(); }}},
    {"marker", {2, [](const Words& w) { mark(w[1]); }}},
    {"fork-in-span", {1, [](const Words&) { forkInSpan(); }}},
    {"name", {2, [](const Words& w) { printName(w[1]); }}},
    {"bad-prctl", {1, [](const Words&) { printBadPrctl(); }}},
};

}  // namespace

int main(int argc, char** argv) {
  for (const std::string& step : Words(argv + 1, argv + argc)) {
    const auto& [count, run] = kSteps.at(cut(step, 2)[0]);
    run(cut(step, count));
  }
  return 0;
}
