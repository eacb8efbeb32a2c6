// Applications that run detached: starting, listing and ending them, and what they print. Each test
// runs with direct launches and with a launch pad.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "quillon/base/exit_status.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using ::testing::StartsWith;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
constexpr char kForLong[] = "1000";

class Running : public LaunchpadTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure() || !GetParam()) {
      return;
    }
    start(2);
    ASSERT_EQ(launchCaptured({kClock}).status, 0);
    ASSERT_TRUE(awaitProcesses("ready", 2)) << status() << errors();
  }
  ~Running() override {
    for (const pid_t process : running()) {
      kill(process, SIGKILL);
    }
  }

  // Runs a command of this device root.
  CommandResult quillon(const std::string& name, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> command = {kQuillon, name, "--device", root()};
    command.insert(command.end(), more.begin(), more.end());
    return runLimited(command);
  }
  // Without a variable for the log.
  CommandResult detach(const std::vector<std::string>& more) const {
    std::vector<std::string> command = {"/usr/bin/env", "-u",       "QUILLON_LOG", kQuillon,
                                        "launch",       "--device", root(),        "--detach"};
    command.insert(command.end(), more.begin(), more.end());
    return runLimited(command);
  }
  void expectDetached() const {
    const CommandResult started = detach({kClock, "--", "--wait", kForLong});
    EXPECT_EQ(started.status, 0) << started.err;
    EXPECT_EQ(started.out + started.err, "");
    if (GetParam()) {
      EXPECT_EQ(served(), 1) << errors();
    }
  }
  // The processes that `quillon ps` lists.
  std::vector<pid_t> running() const {
    std::istringstream lines(quillon("ps").out);
    std::vector<pid_t> found;
    for (std::string line; std::getline(lines, line);) {
      found.push_back(std::stoi(line));
    }
    return found;
  }
  fs::path logFile() const {
    return at(std::string("/opt/usr/share/quillon/logs/") + kClock + ".log");
  }
  bool awaitLog(const std::string& text) const {
    return eventually([&] { return contentOf(logFile()).find(text) != std::string::npos; });
  }
};

TEST_P(Running, ADetachedApplicationGoesOn) {
  EXPECT_THAT(running(), IsEmpty());
  expectDetached();
  const std::string id = kClock;
  EXPECT_THAT(quillon("ps").out, MatchesRegex(" *[0-9]+  " + id + " of " + id + "\n"));
  EXPECT_THAT(quillon("ps", {"--json"}).out, HasSubstr("\"application\": \"" + id + "\""));
  ASSERT_THAT(running(), SizeIs(1));
  const fs::path process = "/proc/" + std::to_string(running().at(0));
  EXPECT_EQ(fs::read_symlink(process / "fd/0"), "/dev/null");
  EXPECT_TRUE(awaitLog("arguments: --wait 1000"));
  EXPECT_THAT(quillon("logs", {id}).out, HasSubstr("arguments: --wait 1000"));
  EXPECT_EQ(quillon("logs").out, id + "\n");
  const CommandResult stopped = quillon("stop", {id});
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_THAT(stopped.out, MatchesRegex("stopped " + id + ", process [0-9]+\n"));
  EXPECT_THAT(running(), IsEmpty());
}

TEST_P(Running, ADetachedApplicationHoldsNoPipeOfItsCaller) {
  const CommandResult piped =
      runLimited({"/bin/sh", "-c",
                  "unset QUILLON_LOG; " + kQuillon + " launch --device '" + root().string() +
                      "' --detach " + kClock + " -- --wait 1000 2>&1 | cat"});
  EXPECT_EQ(piped.status, 0);
  EXPECT_THAT(running(), SizeIs(1));
}

TEST_P(Running, ADetachedLaunchThatFailsSaysWhy) {
  const CommandResult unknown = detach({"org.example.unknown"});
  EXPECT_EQ(unknown.status, kNotInstalled);
  EXPECT_THAT(unknown.err, HasSubstr("org.example.unknown"));
  EXPECT_EQ(quillon("logs").out, "");
  const CommandResult elsewhere = detach({"../../up"});
  EXPECT_NE(elsewhere.status, 0);
  EXPECT_FALSE(fs::exists(at("/opt/usr/share/up.log")));
}

TEST_P(Running, AnApplicationThatDoesNotEndIsKilled) {
  expectDetached();
  ASSERT_THAT(running(), SizeIs(1));
  kill(running().at(0), SIGSTOP);
  const CommandResult killed = quillon("stop", {kClock, "--grace", "0.1"});
  EXPECT_EQ(killed.status, 0) << killed.err;
  EXPECT_THAT(killed.out, StartsWith("killed "));
  EXPECT_THAT(running(), IsEmpty());
}

TEST_P(Running, StopReportsThatNothingRuns) {
  const CommandResult nothing = quillon("stop", {kClock});
  EXPECT_EQ(nothing.status, kNotInstalled);
  EXPECT_THAT(nothing.err, HasSubstr("does not run; list what runs: quillon ps"));
}

TEST_P(Running, LogsFollowsTheLog) {
  expectDetached();
  ASSERT_TRUE(awaitLog("arguments: --wait"));
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const pid_t follower = fork();
  if (follower == 0) {
    dup2(ends[1], STDOUT_FILENO);
    const std::string device = root();
    execl(kQuillon.c_str(), "quillon", "logs", "--device", device.c_str(), kClock, "--follow",
          nullptr);
    _exit(127);
  }
  close(ends[1]);
  write(logFile(), contentOf(logFile()) + "written later\n");
  std::string text;
  std::array<char, 1024> part{};
  pollfd readable{ends[0], POLLIN, 0};
  while (text.find("written later") == std::string::npos && poll(&readable, 1, 20'000) == 1) {
    const ssize_t length = read(ends[0], part.data(), part.size());
    ASSERT_GT(length, 0) << text;
    text.append(part.data(), static_cast<size_t>(length));
  }
  EXPECT_THAT(text, HasSubstr("arguments: --wait"));
  EXPECT_THAT(text, HasSubstr("written later"));
  kill(follower, SIGKILL);
  waitpid(follower, nullptr, 0);
  close(ends[0]);
}

TEST_P(Running, ALargeLogIsPutAside) {
  write(logFile(), std::string((1 << 20) + 1, 'x'));
  expectDetached();
  EXPECT_TRUE(awaitLog("arguments: --wait"));
  EXPECT_LT(fs::file_size(logFile()), 1U << 20);
  EXPECT_EQ(fs::file_size(logFile().string() + ".1"), (1U << 20) + 1);
}

INSTANTIATE_TEST_SUITE_P(Applications, Running, ::testing::Bool(), [](const auto& variant) {
  return std::string(variant.param ? "Prepared" : "Direct");
});

}  // namespace
}  // namespace quillon::test
