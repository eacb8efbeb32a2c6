// Kills zone commands and holders at random times.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/system/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::IsEmpty;

namespace fs = std::filesystem;

constexpr int kRounds = 40;
constexpr int kMaxKillDelayUs = 60000;  // a start takes some tens of milliseconds

class ZoneKill : public ZoneTest {
 protected:
  // Starts the command and kills it within kMaxKillDelayUs, unless it has ended.
  void runAndKill(const char* action) {
    const pid_t command = ::fork();
    if (command == 0) {
      const int null = ::open("/dev/null", O_RDWR);
      ::dup2(null, STDOUT_FILENO);
      ::dup2(null, STDERR_FILENO);
      ::execl(QUILLON_TOOL, "quillon", "zone", action, "appzone", "--device", root_.c_str(),
              nullptr);
      ::_exit(127);
    }
    ::usleep(std::uniform_int_distribution<unsigned>(0, kMaxKillDelayUs)(random_));
    ::kill(command, SIGKILL);
    ::waitpid(command, nullptr, 0);
  }

  void killHolder() {
    if (const pid_t process = holder(); process > 0 && isOurs(process)) {
      ::kill(process, SIGKILL);
    }
  }

  // Processes whose command line names the device root.
  std::vector<std::string> survivors() {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      const std::string process = entry.path().filename();
      if (process != std::to_string(::getpid()) && isdigit(process[0]) != 0 && namesRoot(process)) {
        found.push_back(process);
      }
    }
    return found;
  }

  bool isOurs(pid_t process) { return namesRoot(std::to_string(process)); }

  std::mt19937 random_{20250607};

 private:
  bool namesRoot(const std::string& process) {
    return read("/proc/" + process + "/cmdline").find(root_.string()) != std::string::npos;
  }
};

TEST_F(ZoneKill, StopRemovesEverythingAfterAnyKill) {
  const std::string mounts = read("/proc/self/mountinfo");
  int running = 0;
  for (int round = 0; round < kRounds; ++round) {
    runAndKill("start");
    if (round % 3 == 1) {
      killHolder();
    }
    if (round % 4 == 2) {
      runAndKill("stop");
    }
    // The next commands must work after any of these kills.
    const Outcome started = zone("start appzone");
    ASSERT_TRUE(started.status == 0 || started.status == kZoneState) << started.output;
    running += started.status == kZoneState ? 1 : 0;
    ASSERT_EQ(zone("stop appzone").status, 0);
    ASSERT_THAT(leftovers(), IsEmpty());
    ASSERT_THAT(survivors(), IsEmpty());
  }
  EXPECT_EQ(read("/proc/self/mountinfo"), mounts);
  RecordProperty("startsThatSurvivedTheirKill", running);
}

TEST_F(ZoneKill, OfSeveralStartsAtOnceOneWins) {
  std::vector<pid_t> commands;
  for (int count = 0; count < 6; ++count) {
    commands.push_back(::fork());
    if (commands.back() == 0) {
      ::_exit(zone("start appzone").status);
    }
  }
  int started = 0;
  for (const pid_t command : commands) {
    int status = 0;
    ::waitpid(command, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    started += WEXITSTATUS(status) == 0 ? 1 : 0;
    EXPECT_TRUE(WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == kZoneState);
  }
  EXPECT_EQ(started, 1);
  EXPECT_EQ(survivors().size(), 1U);
  EXPECT_EQ(zone("stop appzone").status, 0);
  EXPECT_THAT(survivors(), IsEmpty());
}

}  // namespace
}  // namespace quillon::test
