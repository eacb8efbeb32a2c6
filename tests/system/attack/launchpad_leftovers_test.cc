// An application finds nothing of another application, or of the launch pad's owner, in the memory
// of its process.
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "tests/system/attack/process_memory.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::IsEmpty;
using ::testing::Not;

class LaunchpadLeftovers : public LaunchpadTestByProcess {
 protected:
  // Launches the probe in a process that was prepared after everything that happened before, and
  // searches its memory.
  std::vector<std::string> foundInNextApplication(const std::vector<std::string>& markers) {
    EXPECT_EQ(control("reload").status, 0);
    EXPECT_TRUE(awaitReady(kPools)) << status() << errors();
    const int before = served();
    RunningProbe probe(root(), "inhouse");
    const pid_t process = std::stoi(probe.ask("process"));
    EXPECT_EQ(served(), before + 1) << probe.errors();
    return findInMemory(process, markers);
  }
  // Makes a pool for each of the two samples.
  void preparePools() {
    ASSERT_EQ(launchCaptured({kClock}).status, 0);
    { RunningProbe direct(root(), "inhouse"); }
    ASSERT_TRUE(awaitReady(kPools)) << status() << errors();
  }

  static constexpr size_t kPools = 2;
};

INSTANTIATE_TEST_SUITE_P(By, LaunchpadLeftovers, ::testing::Bool(), nameOfProcess);

// Otherwise the other tests prove nothing.
TEST_P(LaunchpadLeftovers, TheSearchFindsWhatAnApplicationHas) {
  start(1);
  preparePools();
  RunningProbe probe(root(), "inhouse", {"QUILLON_LOG=none", "OWN=MARKER-OF-THE-PROBE-ITSELF"});
  const pid_t process = std::stoi(probe.ask("process"));
  EXPECT_THAT(findInMemory(process, {"MARKER-OF-THE-PROBE-ITSELF"}), Not(IsEmpty()));
}

TEST_P(LaunchpadLeftovers, ContainNothingOfTheLaunchBefore) {
  start(1);
  preparePools();
  const CommandResult ending = launchCaptured(
      {kClock, "--", "MARKER-IN-AN-ARGUMENT", std::string(60'000, 'x'), "MARKER-IN-A-LONG-REQUEST"},
      {"QUILLON_LOG=none", "OWN=MARKER-IN-A-VARIABLE"});
  EXPECT_EQ(ending.status, 0) << ending.err;
  const CommandResult shorter =
      launchCaptured({kClock, "--", "MARKER-IN-A-DIRECT-LAUNCH"}, {"QUILLON_LOG=none"});
  EXPECT_EQ(shorter.status, 0) << shorter.err;
  ASSERT_TRUE(awaitReady(kPools));
  const CommandResult brief = launchCaptured({kClock, "--", "MARKER-IN-A-SHORT-REQUEST"},
                                             {"QUILLON_LOG=none", "OWN=MARKER-IN-A-VARIABLE"});
  EXPECT_EQ(brief.status, 0) << brief.err;
  EXPECT_GE(served(), 2);
  EXPECT_THAT(foundInNextApplication({"MARKER-IN-AN-ARGUMENT", "MARKER-IN-A-LONG-REQUEST",
                                      "MARKER-IN-A-VARIABLE", "MARKER-IN-A-DIRECT-LAUNCH",
                                      "MARKER-IN-A-SHORT-REQUEST"}),
              IsEmpty());
}

// Every later process is forked from it.
TEST_P(LaunchpadLeftovers, TheLaunchPadItselfHasNothingOfALaunch) {
  start(1);
  prepareFor({"--raw", kClock});
  for (const pid_t process : processes("ready")) {
    kill(process, SIGSTOP);
  }
  setenv("OWN", "MARKER-IN-A-VARIABLE", 1);
  const RunningLaunch launch({"--device", root(), "--raw", kClock, "--", "MARKER-IN-AN-ARGUMENT"});
  unsetenv("OWN");
  ASSERT_TRUE(awaitProcesses("assigned", 1));
  EXPECT_THAT(findInMemory(launchpad(), {"MARKER-IN-AN-ARGUMENT", "MARKER-IN-A-VARIABLE"}),
              IsEmpty());
}

// The launch pad compares these variables, and such a launch is direct.
TEST_P(LaunchpadLeftovers, ContainNothingOfARequestThatWasDeclined) {
  start(1);
  preparePools();
  const CommandResult ending =
      launchCaptured({kClock}, {"QUILLON_LOG=none", "DOTNET_OfThisTest=MARKER-IN-A-SETTING"});
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(served(), 0);
  EXPECT_THAT(foundInNextApplication({"MARKER-IN-A-SETTING"}), IsEmpty());
}

TEST_P(LaunchpadLeftovers, ContainNothingOfTheOwnersEnvironment) {
  setenv("OWNERS_SECRET", "MARKER-OF-THE-OWNER", 1);
  start(1);
  unsetenv("OWNERS_SECRET");
  preparePools();
  EXPECT_THAT(foundInNextApplication({"MARKER-OF-THE-OWNER"}), IsEmpty());
}

}  // namespace
}  // namespace quillon::test
