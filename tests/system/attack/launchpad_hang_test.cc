// Neither another user nor a stopped process can hold a launch or a command of the launch pad.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/base/exit_status.h"
#include "quillon/launchpad/protocol/address.h"
#include "tests/support/skip.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr uid_t kStranger = 54322;
const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";

// Child processes that run until the end of the object.
class Children {
 public:
  ~Children() {
    for (const pid_t child : all_) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
  // `main` gets a descriptor to write a byte to when it is ready. Returns false if it ends before.
  bool start(const std::function<void(int)>& main) {
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
      return false;
    }
    const pid_t child = fork();
    if (child == 0) {
      close(ready[0]);
      main(ready[1]);
      _exit(1);
    }
    all_.push_back(child);
    close(ready[1]);
    char byte = 0;
    const bool isReady = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    return isReady;
  }

 private:
  std::vector<pid_t> all_;
};

void reportReady(int ready) { [[maybe_unused]] const ssize_t written = ::write(ready, "x", 1); }

bool becomeStranger() {
  return setgroups(0, nullptr) == 0 && setgid(kStranger) == 0 && setuid(kStranger) == 0;
}

struct Socket {
  explicit Socket(const std::string& address, int flags = 0)
      : fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0)) {
    name.sun_family = AF_UNIX;
    std::memcpy(name.sun_path + 1, address.data(), address.size());
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + address.size());
  }
  [[nodiscard]] bool connect() const { return ::connect(fd.get(), generic(), length) == 0; }
  [[nodiscard]] bool listen(int queue) const {
    return bind(fd.get(), generic(), length) == 0 && ::listen(fd.get(), queue) == 0;
  }
  [[nodiscard]] const sockaddr* generic() const { return reinterpret_cast<const sockaddr*>(&name); }

  Descriptor fd;
  sockaddr_un name{};
  socklen_t length = 0;
};

// Listens at the address, accepts nothing, and fills its own queue.
void occupy(const std::string& address, int ready) {
  const Socket listener(address);
  if (!listener.listen(0)) {
    return;
  }
  std::vector<Socket> waiting;
  do {
    waiting.emplace_back(address, SOCK_NONBLOCK);
  } while (waiting.back().connect());
  reportReady(ready);
  pause();
}

[[noreturn]] void connectForEver(const std::string& address, int ready) {
  reportReady(ready);
  for (;;) {
    [[maybe_unused]] const bool isConnected = Socket(address).connect();
  }
}

class LaunchpadHang : public LaunchpadTest {
 protected:
  CommandResult launchLimited(const std::vector<std::string>& more) const {
    std::vector<std::string> command = {kQuillon, "launch", "--device", root()};
    command.insert(command.end(), more.begin(), more.end());
    return runLimited(command);
  }
  CommandResult controlLimited(const std::string& action) const {
    return runLimited({kQuillon, "launchpad", action, "--device", root()});
  }
  void expectDirectLaunches(const std::string& reason) const {
    const CommandResult ending = launchLimited({"--raw", "--verbose", kClock, "--", "--exit", "3"});
    EXPECT_EQ(ending.status, 3) << ending.err;
    EXPECT_THAT(ending.err, HasSubstr("not by the launch pad: " + reason));
    const CommandResult direct =
        launchLimited({"--raw", "--direct", "--verbose", kClock, "--", "--exit", "3"});
    EXPECT_EQ(direct.status, 3) << direct.err;
  }
  // Expects that each command fails with one line.
  void expectCommandsFail(const std::string& reason) const {
    for (const std::string action : {"status", "reload", "stop"}) {
      const CommandResult ending = controlLimited(action);
      EXPECT_EQ(ending.status, kLaunchPadState) << action;
      EXPECT_EQ(ending.out, "");
      EXPECT_THAT(ending.err, StartsWith("quillon: " + reason));
      EXPECT_EQ(std::count(ending.err.begin(), ending.err.end(), '\n'), 1) << ending.err;
    }
  }
};

TEST_F(LaunchpadHang, AnotherUserAtTheAddressHoldsNobody) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can become another user");
  }
  const std::string address = launchpad::addressOf(root());
  Children stranger;
  ASSERT_TRUE(stranger.start([&](int ready) {
    const Socket listener(address);
    if (becomeStranger() && listener.listen(SOMAXCONN)) {
      reportReady(ready);
      pause();
    }
  }));
  const std::string reason = "user 54322 listens at the launch pad's address";
  expectDirectLaunches(reason);
  expectCommandsFail(reason);
}

TEST_F(LaunchpadHang, AnotherUsersFullQueueHoldsNobody) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can become another user");
  }
  const std::string address = launchpad::addressOf(root());
  Children stranger;
  ASSERT_TRUE(stranger.start([&](int ready) {
    if (becomeStranger()) {
      occupy(address, ready);
    }
  }));
  expectDirectLaunches("too many connections wait for the launch pad");
  expectCommandsFail("too many connections wait for the launch pad");
}

TEST_F(LaunchpadHang, AFullQueueHoldsNobody) {
  const std::string address = launchpad::addressOf(root());
  Children own;
  ASSERT_TRUE(own.start([&](int ready) { occupy(address, ready); }));
  expectDirectLaunches("too many connections wait for the launch pad");
  expectCommandsFail("too many connections wait for the launch pad");
}

TEST_F(LaunchpadHang, ConnectionsOfAnotherUserDelayNoLaunch) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can become another user");
  }
  start(1);
  prepareFor({"--raw", kClock});
  const std::string address = launchpad::addressOf(root());
  Children strangers;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(strangers.start([&](int ready) {
      if (becomeStranger()) {
        connectForEver(address, ready);
      }
    }));
  }
  const CommandResult ending = launchLimited({"--raw", "--verbose", kClock, "--", "--exit", "3"});
  EXPECT_EQ(ending.status, 3) << ending.err;
  EXPECT_EQ(ending.err.find("the launch pad does not answer"), std::string::npos) << ending.err;
}

// The caller's pipe must not be open anywhere when the command has ended.
TEST_F(LaunchpadHang, AStoppedLaunchPadHoldsNeitherALaunchNorItsPipe) {
  start(1);
  prepareFor({"--raw", kClock});
  kill(launchpad(), SIGSTOP);
  const CommandResult ending = runLimited({"/bin/sh", "-c",
                                           kQuillon + " launch --device '" + root().string() +
                                               "' --raw " + kClock + " -- behind a pipe | cat"});
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.out, HasSubstr("arguments: behind a pipe\n"));
  expectDirectLaunches("the launch pad does not answer");
}

TEST_F(LaunchpadHang, AStoppedProcessHoldsNeitherALaunchNorItsPipe) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t stopped = processes("ready").at(0);
  kill(stopped, SIGSTOP);
  const CommandResult ending =
      runLimited({"/bin/sh", "-c",
                  kQuillon + " launch --device '" + root().string() + "' --raw --verbose " +
                      kClock + " -- behind a pipe | cat"});
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.out, HasSubstr("arguments: behind a pipe\n"));
  EXPECT_THAT(ending.err, HasSubstr("its prepared process does not take the launch over"));
  EXPECT_FALSE(isAlive(stopped));
  EXPECT_EQ(served(), 0);
}

size_t descriptorsOf(pid_t process) {
  const std::filesystem::path folder = "/proc/" + std::to_string(process) + "/fd";
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// Waits until what happened before has left no descriptor behind.
size_t settledDescriptorsOf(pid_t process) {
  size_t last = 0;
  EXPECT_TRUE(eventually([&] {
    const size_t before = std::exchange(last, descriptorsOf(process));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return before == last;
  }));
  return last;
}

// The process that reads /proc for it; so far it has no other child.
pid_t inspectorOf(pid_t launchpad) {
  const std::string number = std::to_string(launchpad);
  return std::stoi(contentOf("/proc/" + number + "/task/" + number + "/children"));
}

TEST_F(LaunchpadHang, ClientsThatEndBeforeTheyAreInspectedLeaveNothing) {
  start(1);
  const pid_t inspector = inspectorOf(launchpad());
  const size_t before = settledDescriptorsOf(launchpad());
  kill(inspector, SIGSTOP);
  for (const int client : {1, 2}) {
    {
      const RunningLaunch launch({"--device", root(), kClock});
      // A connection, one to the worker, a process, and the socket for the launch-boost notice.
      ASSERT_TRUE(eventually([&] { return descriptorsOf(launchpad()) == before + 4; })) << client;
    }
    EXPECT_TRUE(eventually([&] { return descriptorsOf(launchpad()) == before; })) << client;
  }
  kill(inspector, SIGCONT);
  EXPECT_EQ(launch({kClock}).status, 0);
}

TEST_F(LaunchpadHang, AStoppedLaunchPadAnswersNoCommand) {
  start(1);
  kill(launchpad(), SIGSTOP);
  expectCommandsFail("the launch pad, process " + std::to_string(launchpad()) +
                     ", does not answer; if it is stopped, continue it (kill -CONT");
}

}  // namespace
}  // namespace quillon::test
