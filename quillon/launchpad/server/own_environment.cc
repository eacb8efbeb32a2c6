#include "quillon/launchpad/server/own_environment.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/launchpad/state/process_state.h"
#include "quillon/launchpad/worker/environment.h"

namespace quillon::launchpad {
namespace {

constexpr std::array<std::string_view, 6> kOwn = {"QUILLON_DEVICE",    "QUILLON_LOG",
                                                  "QUILLON_LOG_LEVEL", "NO_COLOR",
                                                  "NOTIFY_SOCKET",     "WATCHDOG_USEC"};

bool isKeptEntry(const char* entry) {
  const std::string_view text = entry;
  return isKept(text.substr(0, text.find('=')));
}

// The process id in this variable's value says that this process has executed the program again.
constexpr char kRestarted[] = "QUILLON_RESTARTED";

bool wasRestarted() {
  const char* const process = getenv(kRestarted);
  return process != nullptr && process == std::to_string(getpid());
}

void unsetOthers() {
  for (const auto& [name, entry] : currentEntries()) {
    if (!isKept(name)) {
      unsetenv(name.c_str());
    }
  }
}

// Pointers to the arguments of the process, which `commandLine` must outlive, and a null pointer.
std::vector<char*> argumentsIn(std::string& commandLine) {
  std::vector<char*> arguments;
  for (size_t at = 0; at < commandLine.size(); at += std::strlen(&commandLine[at]) + 1) {
    arguments.push_back(&commandLine[at]);
  }
  arguments.push_back(nullptr);
  return arguments;
}

}  // namespace

bool isKept(std::string_view variable) {
  return isReadAtStart(variable) || std::find(kOwn.begin(), kOwn.end(), variable) != kOwn.end();
}

Expected<void> restartWithOwnEnvironment() {
  if (wasRestarted()) {
    unsetOthers();
    return {};
  }
  std::vector<char*> kept;
  size_t count = 0;
  for (; environ != nullptr && environ[count] != nullptr; ++count) {
    if (isKeptEntry(environ[count])) {
      kept.push_back(environ[count]);
    }
  }
  if (kept.size() == count) {
    return {};
  }
  std::string restarted = kRestarted + ("=" + std::to_string(getpid()));
  kept.push_back(restarted.data());
  kept.push_back(nullptr);
  std::string commandLine = readSmallFileAt(AT_FDCWD, "/proc/self/cmdline");
  execve(executablePath().c_str(), argumentsIn(commandLine).data(), kept.data());
  return fail(std::string("cannot execute the program again: ") + std::strerror(errno),
              "check that /proc is mounted and the program is installed");
}

}  // namespace quillon::launchpad
