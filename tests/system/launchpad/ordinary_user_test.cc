// The launch pad of a user other than root: its device roots and zones are in user namespaces.
#include "tests/system/launch/ordinary_user.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/address.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;

class OrdinaryUsersPool : public AsOrdinaryUser<LaunchpadTest> {
 protected:
  static std::string statusOf(const std::string& process) {
    return contentOf("/proc/" + process + "/status");
  }
};

TEST_F(OrdinaryUsersPool, ServesItsUserOnly) {
  start(1);
  expectNoAnswerTo(kOrdinaryUser + 1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  RunningProbe probe(root(), "inhouse");
  const std::string process = probe.ask("process");
  EXPECT_EQ(served(), 1) << probe.errors() << errors();
  EXPECT_THAT(statusOf(process), HasSubstr("Uid:\t54321\t54321\t54321\t54321\n"));
  EXPECT_THAT(statusOf(process), HasSubstr("CapPrm:\t0000000000000000\n"));
  EXPECT_EQ(probe.ask("variable QUILLON_APP_ID"), kProbe);
  EXPECT_EQ(probe.quit(), 0);
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
}

// The kernel limits the descriptors that a user has sent and nobody has received to the sender's
// limit of open files (unix(7), ETOOMANYREFS).
TEST_F(OrdinaryUsersPool, IdleClientsDoNotPreventALaunch) {
  start(1);
  prepareFor({"--raw", kClock});
  std::vector<Descriptor> idle;
  while (idle.size() < 600) {
    ASSERT_TRUE(eventually([&] {
      auto client = launchpad::connectTo(launchpad::addressOf(root()));
      const bool isConnected = client && *client;
      if (isConnected) {
        idle.push_back(std::move(*client));
      }
      return isConnected;
    }));
  }
  EXPECT_EQ(served(), 0);  // it answers
  const CommandResult ending = runLimited({"/bin/sh", "-c",
                                           "ulimit -S -n 1024; exec " QUILLON_BUILD_DIRECTORY
                                           "/bin/quillon launch --device " +
                                               root().string() + " --raw --verbose " + kClock});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(served(), 1) << ending.err << errors();
}

TEST_F(OrdinaryUsersPool, LogsNoErrorIfAllIsWell) { expectNoErrorsInTheLog(); }

TEST_F(OrdinaryUsersPool, RunsApplicationsInTheZone) { expectApplicationInTheZone(); }

// A process that is started by exec must keep the capabilities that it needs to enter the zone.
TEST_F(OrdinaryUsersPool, RunsApplicationsOfFreshProcessesInTheZone) {
  expectApplicationInTheZone({"--fresh"});
}

}  // namespace
}  // namespace quillon::test
