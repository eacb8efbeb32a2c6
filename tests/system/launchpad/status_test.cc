// What a launch pad tells about its launches, and what a direct launch beside it tells.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/execute.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
const std::string kNotReady = "no process is ready for it";

class LaunchpadStatus : public LaunchpadTest {
 protected:
  CommandResult quillon(std::vector<std::string> command) const {
    command.insert(command.begin(), kQuillon);
    command.insert(command.end(), {"--device", root()});
    return runLimited(command);
  }

  // The output of a launch whose standard error is a terminal.
  std::string launchOnTerminal(const std::vector<std::string>& more) const {
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      setenv("QUILLON_LOG", "none", 1);
      putenv(const_cast<char*>(kRuntimeSanitizerOptions));  // as the launch pad has them
      std::vector<std::string> words = {kQuillon, "launch", "--device", root(), "--raw"};
      words.insert(words.end(), more.begin(), more.end());
      execute(words);
    }
    std::string text;
    std::array<char, 1024> part{};
    pollfd readable{terminal, POLLIN, 0};
    while (poll(&readable, 1, 20'000) == 1) {
      const ssize_t length = read(terminal, part.data(), part.size());
      if (length <= 0) {
        break;
      }
      text.append(part.data(), static_cast<size_t>(length));
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(terminal);
    return text;
  }
};

TEST_F(LaunchpadStatus, NamesRunningApplications) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status();
  RunningProbe probe(root(), "inhouse");
  const std::string process = probe.ask("process");
  EXPECT_THAT(status(), HasSubstr("  process " + process + ": running, " + kProbe + "\n"));
  const auto json = nlohmann::json::parse(quillon({"launchpad", "status", "--json"}).out);
  EXPECT_EQ(json["served"], 1);
  EXPECT_EQ(json["directLaunches"].at(0)["reason"], kNotReady);
  EXPECT_EQ(json["directLaunches"].at(0)["application"], kProbe);
  bool isListed = false;
  for (const auto& each : json["processes"]) {
    isListed |= each["pid"] == std::stoi(process) && each["application"] == kProbe;
  }
  EXPECT_TRUE(isListed) << json.dump();
}

// The launch pad learns of the start and of the client's end at the same time.
TEST_F(LaunchpadStatus, CountsALaunchWhoseClientEndsAtOnce) {
  start(1);
  prepareFor({"--raw", kClock});
  const pid_t worker = processes("ready").at(0);
  kill(worker, SIGSTOP);
  RunningLaunch launch({"--device", root(), "--raw", kClock});
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  kill(launchpad(), SIGSTOP);
  kill(worker, SIGCONT);
  ASSERT_TRUE(eventually([&] { return !launch.output().empty(); }));
  launch.signal(SIGKILL);
  launch.wait();
  kill(launchpad(), SIGCONT);
  EXPECT_TRUE(eventually([&] { return !isAlive(worker); }));
  EXPECT_EQ(served(), 1) << status();
}

// Also the reasons that only the client knows.
TEST_F(LaunchpadStatus, SaysWhyTheLastLaunchesWereDirect) {
  start(1);
  prepareFor({"--raw", kClock});
  const CommandResult kept = runLimited(
      {"/bin/bash", "-c",
       "exec 300</dev/null; for i in {301..330}; do eval \"exec $i</dev/null\"; done; exec " +
           kQuillon + " launch --device '" + root().string() + "' --raw " + kClock});
  EXPECT_EQ(kept.status, 0) << kept.err;
  EXPECT_EQ(kept.err, "");  // no terminal
  EXPECT_THAT(status(), ContainsRegex("[0-9]{2}:[0-9]{2}:[0-9]{2} " + std::string(kClock) +
                                      ": a prepared process cannot take over"));
  EXPECT_THAT(status(), HasSubstr(": " + kNotReady));
}

TEST_F(LaunchpadStatus, ADirectLaunchOnATerminalSaysWhy) {
  EXPECT_THAT(launchOnTerminal({kClock}), Not(HasSubstr("launched directly")));
  start(1);
  EXPECT_THAT(launchOnTerminal({kClock}),
              HasSubstr("quillon: launched directly, not by the launch pad: " + kNotReady +
                        "; this was the first launch of its kind: launch it again"));
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status();
  EXPECT_THAT(launchOnTerminal({kClock}), Not(HasSubstr("launched directly")));
  EXPECT_EQ(served(), 1);
  EXPECT_THAT(launchOnTerminal({"--direct", kClock}), Not(HasSubstr("launched directly")));
  EXPECT_THAT(launchOnTerminal({"org.example.unknown"}), Not(HasSubstr("launched directly")));
}

// https://github.com/OpenObservability/OpenMetrics
TEST_F(LaunchpadStatus, MetricsAreOpenMetrics) {
  start(1);
  prepareFor({"--raw", kClock});
  ASSERT_EQ(launch({"--raw", kClock}).status, 0);
  ASSERT_EQ(served(), 1);
  const std::string text = quillon({"launchpad", "metrics"}).out;
  EXPECT_THAT(text, EndsWith("\n# EOF\n"));
  EXPECT_THAT(text, HasSubstr("\nquillon_launches_total{way=\"prepared\"} 1\n"));
  EXPECT_THAT(
      text, HasSubstr("\nquillon_launches_total{way=\"direct\",reason=\"" + kNotReady + "\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("\nquillon_launch_duration_seconds_bucket{le=\"1.0\"} "));
  EXPECT_THAT(text, HasSubstr("\nquillon_launch_duration_seconds_bucket{le=\"+Inf\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("\nquillon_launch_duration_seconds_count 1\n"));
  EXPECT_THAT(text, HasSubstr("\nquillon_pool_processes{pool=\"inhouse, raw"));
  const std::regex line(
      "# (TYPE|UNIT|HELP) quillon_[a-z_]+ .+|# EOF|"
      "quillon_[a-z_]+(\\{([a-z]+=\"([^\"\\\\]|\\\\.)*\",?)+\\})? [0-9.]+");
  std::istringstream lines(text);
  for (std::string each; std::getline(lines, each);) {
    EXPECT_TRUE(std::regex_match(each, line)) << each;
  }
}

}  // namespace
}  // namespace quillon::test
