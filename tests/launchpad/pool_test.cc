// Whatever dies, no launch is lost, none runs twice, and nothing is left behind.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "launcher/launchpad/address.h"
#include "launcher/launchpad/packet.h"
#include "tests/launchpad/running_launchpad.h"
#include "tests/support/sanitized.h"
#include "tests/support/skip.h"
#include "tools/exit_status.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class Pool : public LaunchpadTest {
 protected:
  std::vector<std::string> clock(const std::string& word) const {
    return {"--device", root(), "--raw", kClock, "--", word};
  }
  void awaitDeath(const std::vector<pid_t>& processes) const {
    for (const pid_t process : processes) {
      EXPECT_TRUE(eventually([&] { return !isAlive(process); })) << process;
    }
  }
};

size_t times(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST_F(Pool, OnlyOneServesADeviceRootAndOnlyItsUser) {
  start(1);
  const Ending second =
      run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "launchpad", "--device", root()});
  EXPECT_EQ(second.status, kLaunchPadState);
  EXPECT_THAT(second.err, HasSubstr("serves the device root"));
  if (geteuid() != 0) QUILLON_SKIP("only root can become another user");
  const std::string address = launchpad::addressOf(root());
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setuid(65534) != 0) _exit(1);
    // The address is another one for another user, and this one is not trusted.
    if (launchpad::connectTo(address)) _exit(2);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::memcpy(name.sun_path + 1, address.data(), address.size());
    const int socket = ::socket(AF_UNIX, SOCK_SEQPACKET, 0);
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + address.size());
    if (connect(socket, reinterpret_cast<sockaddr*>(&name), length) != 0) _exit(3);
    launchpad::sendPacket(socket, launchpad::PacketKind::kStop);
    launchpad::Packet answer;
    _exit(launchpad::receivePacket(socket, answer) == launchpad::Received::kEnd ? 0 : 4);
  }
  int status = -1;
  waitpid(stranger, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(this->status(), HasSubstr("serving"));
}

TEST_F(Pool, ADeadProcessIsReplacedAndALaunchTriedOnceMore) {
  start(2);
  prepareFor({"--raw", kClock});
  const auto before = processes("ready");
  kill(before[0], SIGKILL);
  ASSERT_TRUE(eventually([&] {
    const auto now = processes("ready");
    return now.size() == 2 && now != before;
  }));
  EXPECT_THAT(errors(), HasSubstr("ended unasked; the next one is made in 1 s"));
  // A process that hangs after it got its launch, and is killed.
  auto ready = processes("ready");
  kill(ready[0], SIGSTOP);
  RunningLaunch again(clock("again"));
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  kill(ready[0], SIGKILL);
  Ending ending = again.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(times(ending.out, "arguments: again\n"), 1U);
  EXPECT_EQ(served(), 1);
  // Both die: the command launches by itself.
  ASSERT_TRUE(awaitProcesses("ready", 2));
  ready = processes("ready");
  for (const pid_t process : ready) kill(process, SIGSTOP);
  RunningLaunch direct(clock("direct"));
  for (const pid_t process : ready) {
    ASSERT_TRUE(eventually([&] {
      const auto assigned = processes("assigned");
      return assigned.size() == 1 && assigned[0] == process;
    })) << status();
    kill(process, SIGKILL);
  }
  ending = direct.wait();
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(times(ending.out, "arguments: direct\n"), 1U);
  EXPECT_EQ(served(), 1);
}

TEST_F(Pool, TheApplicationEndsWithItsAskingCommand) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  pid_t application = 0;
  {
    RunningProbe probe(root(), "inhouse");
    application = std::stoi(probe.ask("process"));
    EXPECT_EQ(served(), 1);
  }  // killed
  awaitDeath({application});
  // One that is killed while its process has not begun.
  ASSERT_TRUE(awaitProcesses("ready", 1));
  const auto ready = processes("ready");
  kill(ready[0], SIGSTOP);
  {
    RunningLaunch launch({"--device", root(), kProbe});
    ASSERT_TRUE(awaitProcesses("assigned", 1));
  }
  awaitDeath(ready);
  EXPECT_TRUE(awaitProcesses("ready", 1));
}

TEST_F(Pool, NothingOutlivesAKilledLaunchPad) {
  start(2);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 2));
  RunningProbe probe(root(), "inhouse");
  auto all = processes("ready");
  all.push_back(std::stoi(probe.ask("process")));
  ASSERT_EQ(served(), 1);
  killLaunchpad();
  EXPECT_EQ(probe.quit(), kLaunchPadState);
  EXPECT_THAT(probe.errors(), HasSubstr("quillon: the launch pad ended, and the application with"));
  awaitDeath(all);
  EXPECT_EQ(launch({kClock}).status, 0);
  start(1);  // its address is free
  EXPECT_THAT(status(), HasSubstr("serving"));
}

TEST_F(Pool, StopAndReloadLoseNothing) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1));
  auto probe = std::make_unique<RunningProbe>(root(), "inhouse");
  ASSERT_EQ(served(), 1);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  const auto before = processes("ready");
  EXPECT_EQ(control("reload").status, 0);
  awaitDeath(before);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(probe->ask("variable QUILLON_APP_ID"), kProbe);
  kill(launchpad(), SIGTERM);
  ASSERT_TRUE(eventually([&] { return status().starts_with("stopping"); }));
  EXPECT_TRUE(awaitProcesses("ready", 0));
  const Ending late = launch({"--raw", "--verbose", kClock, "--", "--exit", "3"});
  EXPECT_EQ(late.status, 3);
  EXPECT_THAT(late.err, HasSubstr("the launch pad is about to stop"));
  EXPECT_EQ(probe->ask("variable QUILLON_APP_ID"), kProbe);
  // Asked again it waits for nobody.
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
  EXPECT_EQ(probe->quit(), 128 + SIGKILL);
  EXPECT_EQ(control("status").status, kLaunchPadState);
}

// The debugger's files in the device's temporary folder that are named for a process.
size_t debuggerFiles(const fs::path& folder, pid_t process) {
  const std::string number = "-" + std::to_string(process) + "-";
  size_t count = 0;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename();
    count += times(name, "clr-debug-pipe" + number) + times(name, "dotnet-diagnostic" + number);
  }
  return count;
}

TEST_F(Pool, AnEndedProcessLeavesNoDebuggerFiles) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t idle = processes("ready").at(0);
  const auto left = [&](pid_t process) { return debuggerFiles(at("/tmp"), process); };
  ASSERT_GT(left(idle), 0U);
  // Of processes that live, that never were, and whose numbers merely begin alike.
  const std::string number = std::to_string(idle);
  const fs::path longer = at("/tmp/clr-debug-pipe-" + number + "0-1-in");
  const fs::path ofTest = at("/tmp/dotnet-diagnostic-" + std::to_string(getpid()) + "-1-socket");
  const fs::path others = at("/tmp/other-" + number + "-1-in");
  for (const fs::path& file : {longer, ofTest, others}) write(file, "");
  EXPECT_EQ(control("reload").status, 0);
  awaitDeath({idle});
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(left(idle), 0U);
  for (const fs::path& file : {longer, ofTest, others}) EXPECT_TRUE(fs::exists(file)) << file;
  // What a killed launch pad leaves, the next one finds.
  const pid_t orphan = processes("ready").at(0);
  killLaunchpad();
  awaitDeath({orphan});
  EXPECT_GT(left(orphan), 0U);
  start(1);
  EXPECT_EQ(left(orphan), 0U);
  for (const fs::path& file : {ofTest, others}) EXPECT_TRUE(fs::exists(file)) << file;
}

size_t descriptorsOf(pid_t process) {
  const fs::path folder = "/proc/" + std::to_string(process) + "/fd";
  return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

long memoryOf(pid_t process) {
  const std::string text = contentOf("/proc/" + std::to_string(process) + "/status");
  return std::atol(text.c_str() + text.find("VmRSS:") + 6);
}

// Of the device root's view that a process has.
size_t mountsOf(pid_t process) {
  return times(contentOf("/proc/" + std::to_string(process) + "/mountinfo"), "\n");
}

// "ROW,AT_ONCE" in the environment asks for more launches than every build does.
std::pair<int, int> stormSize() {
  int row = 20;
  int atOnce = 10;
  if (const char* const asked = std::getenv("QUILLON_LAUNCHPAD_STORM")) {
    std::sscanf(asked, "%d,%d", &row, &atOnce);
  }
  return {row, atOnce};
}

TEST_F(Pool, ManyLaunchesEachRunOnceAndLeaveNothing) {
  const auto [row, atOnce] = stormSize();
  start(4);
  prepareFor({"--raw", kClock});
  const size_t descriptors = descriptorsOf(launchpad());
  const long memory = memoryOf(launchpad());
  const size_t mounts = mountsOf(launchpad());
  ASSERT_GT(mounts, 0U);
  for (int i = 0; i < row; ++i) {
    RunningLaunch launch(clock("row" + std::to_string(i)));
    const Ending ending = launch.wait();
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(times(ending.out, "arguments: row" + std::to_string(i) + "\n"), 1U);
  }
  EXPECT_GT(served(), 0);
  std::vector<std::unique_ptr<RunningLaunch>> launches;
  for (int i = 0; i < atOnce; ++i) {
    launches.push_back(std::make_unique<RunningLaunch>(clock("once" + std::to_string(i))));
  }
  for (int i = 0; i < atOnce; ++i) {
    const Ending ending = launches[static_cast<size_t>(i)]->wait();
    EXPECT_EQ(ending.status, 0) << ending.err;
    EXPECT_EQ(times(ending.out, "arguments: once" + std::to_string(i) + "\n"), 1U);
  }
  ASSERT_TRUE(eventually([&] { return processes("ready").size() == 4; }));
  EXPECT_EQ(descriptorsOf(launchpad()), descriptors);
  EXPECT_EQ(mountsOf(launchpad()), mounts);
  constexpr long kSlackKb = 1024;
  // A sanitizer keeps freed memory for a while.
  if (!isSanitized()) {
    EXPECT_LE(memoryOf(launchpad()), memory + kSlackKb);
  }
  std::printf("served %d of %d; mounts %zu; descriptors %zu, then %zu; resident kB %ld, then %ld\n",
              served(), row + atOnce, mountsOf(launchpad()), descriptors,
              descriptorsOf(launchpad()), memory, memoryOf(launchpad()));
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
}

}  // namespace
}  // namespace quillon::test
