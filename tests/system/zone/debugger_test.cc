// Debug mode with an unprivileged debugger outside the zone.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>

#include "tests/system/zone/zone_fixture.h"

namespace quillon::test {
namespace {

// Makes the memory of this process accessible to privileged processes only, as the kernel does
// after a change of user.
void becomeUndumpable() { ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0); }

int enterZone(bool debugMode) {
  const ZoneLibrary library;
  void* context = library.getContext("appzone");
  if (context == nullptr || (debugMode && library.enableDebugMode(context) < 0) ||
      library.attachProcess(context) < 0) {
    return 1;
  }
  return library.releaseContext(&context);
}

class Debugger : public ZoneTest {
 protected:
  // Starts an application in the zone that has dropped its privileges, as before its execution.
  // Returns its process id. It ends when `life` is closed.
  pid_t launch(bool debugMode, int& life) {
    std::array<int, 2> ready{};
    std::array<int, 2> end{};
    if (::pipe(ready.data()) != 0 || ::pipe(end.data()) != 0) {
      return -1;
    }
    const pid_t application = ::fork();
    if (application == 0) {
      ::close(end[1]);
      ::_exit(runApplication(debugMode, ready[1], end[0]));
    }
    ::close(ready[1]);
    ::close(end[0]);
    char byte = 0;
    const bool runs = ::read(ready[0], &byte, 1) == 1;
    ::close(ready[0]);
    life = end[1];
    return runs ? application : -1;
  }

  // Returns the result of an attempt to attach from outside the zone.
  static std::string attach(pid_t application) {
    return inChild([application] {
             dropCapabilities();
             const long seized = ::ptrace(PTRACE_SEIZE, application, nullptr, nullptr);
             std::cout << (seized == 0 ? "attached" : std::strerror(errno));
             return 0;
           })
        .output;
  }

  std::string attachTo(bool debugMode) {
    int life = -1;
    const pid_t application = launch(debugMode, life);
    if (application < 0) {
      return "not launched";
    }
    const std::string result = attach(application);
    ::close(life);
    ::waitpid(application, nullptr, 0);
    return result;
  }

 private:
  int runApplication(bool debugMode, int ready, int end) {
    char byte = 0;
    const std::string zone = std::to_string(holder());
    if (!device::enter(root_, {})) {
      return 1;
    }
    becomeUndumpable();
    if (enterZone(debugMode) != 0) {
      return 2;
    }
    if (namespaceOf("self", "mnt") != namespaceOf(zone, "mnt")) {
      return 5;
    }
    dropCapabilities();
    if (::write(ready, "r", 1) != 1) {
      return 3;
    }
    return ::read(end, &byte, 1) == 0 ? 0 : 4;
  }
};

TEST_F(Debugger, AttachesToAnApplicationInDebugMode) {
  start();
  EXPECT_EQ(attachTo(true), "attached");
}

TEST_F(Debugger, IsRefusedWithoutDebugMode) {
  start();
  EXPECT_EQ(attachTo(false), std::strerror(EPERM));
}

}  // namespace
}  // namespace quillon::test
