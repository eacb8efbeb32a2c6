// What the launch pad checks and prepares while a worker takes a launch over.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "quillon/base/descriptor.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class HandOver : public LaunchpadTest {
 protected:
  fs::path boostSocket() const { return at("/tmp/kestsock"); }
  bool hasBoostSocket() const { return fs::is_socket(fs::symlink_status(boostSocket())); }

  // Replaces the socket as a daemon does when it starts.
  Descriptor startDaemon() const {
    fs::remove(boostSocket());
    Descriptor daemon(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    boostSocket().string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(daemon.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(daemon.get(), 4), 0);
    return daemon;
  }

  // The process that reads /proc for the launch pad: its first child.
  pid_t inspector() const {
    const std::string number = std::to_string(launchpad());
    return std::stoi(contentOf("/proc/" + number + "/task/" + number + "/children"));
  }
};

// Whether the child that this process has started last waits for an event.
bool lastChildWaits() {
  const std::string own = std::to_string(getpid());
  std::istringstream children(contentOf("/proc/self/task/" + own + "/children"));
  std::string last;
  while (children >> last) {
  }
  return contentOf("/proc/" + last + "/stat").find(") S ") != std::string::npos;
}

std::string noticeTo(const Descriptor& daemon) {
  const Descriptor connection(accept4(daemon.get(), nullptr, nullptr, SOCK_CLOEXEC));
  char bytes[256] = {};
  EXPECT_GT(read(connection.get(), bytes, sizeof bytes - 1), 0);
  return bytes;
}

// Otherwise an application would start with files that are not installed any more.
TEST_F(HandOver, AnInstallationDuringTheRequestIsNoticed) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t stale = processes("ready").at(0);
  kill(inspector(), SIGSTOP);
  RunningLaunch launch({"--device", root(), "--raw", "--verbose", kClock});
  ASSERT_TRUE(eventually([&] { return hasBoostSocket(); }));  // the request has arrived
  installClock(
      "[package]\nid = \"org.velora.sample.clock\"\nversion = \"2\"\n"
      "files = \"org.velora.sample.clock\"\n"
      "privileges = [\"/privilege/internal/default/platform\"]\n"
      "[[application]]\nid = \"org.velora.sample.clock\"\nexec = \"bin/SampleClock.dll\"\n");
  kill(inspector(), SIGCONT);
  const CommandResult ending = launch.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.err, HasSubstr("launched directly, not by the launch pad"));
  EXPECT_EQ(served(), 0);
  EXPECT_TRUE(eventually([&] { return !isAlive(stale); }));
}

TEST_F(HandOver, TheBoostNoticeIsReceivedAtOnceAndTheSocketRemoved) {
  const fs::path trace = fresh("trace.json");
  setenv("QUILLON_TRACE", trace.c_str(), 1);
  start(1);
  prepareFor({"--raw", kClock});
  const size_t before = contentOf(trace).size();
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  unsetenv("QUILLON_TRACE");
  EXPECT_EQ(served(), 1);
  EXPECT_THAT(contentOf(trace).substr(before),
              AllOf(HasSubstr(std::string("APPSTART:") + kClock), Not(HasSubstr("connect error"))));
  EXPECT_TRUE(eventually([&] { return !hasBoostSocket(); }));
}

// The launch pad starts another process meanwhile, which inherits its sockets.
TEST_F(HandOver, ABoostDaemonThatStartsMeanwhileGetsTheNoticeAndKeepsItsSocket) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t worker = processes("ready").at(0);
  kill(worker, SIGSTOP);
  RunningLaunch launch({"--device", root(), "--raw", kClock});
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  ASSERT_TRUE(eventually(lastChildWaits));  // it has handed the launch over
  launch.signal(SIGSTOP);                   // so that it does not give up
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  EXPECT_TRUE(hasBoostSocket());
  const Descriptor daemon = startDaemon();
  kill(worker, SIGCONT);
  ASSERT_TRUE(eventually([&] { return served() == 1; })) << status() << errors();
  launch.signal(SIGCONT);
  EXPECT_EQ(launch.wait().status, 0);
  EXPECT_THAT(noticeTo(daemon), HasSubstr(std::string("APPSTART:") + kClock));
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
  EXPECT_TRUE(hasBoostSocket());
}

}  // namespace
}  // namespace quillon::test
