// How a launch pad is started has no effect on its applications, or it refuses to start.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "quillon/base/exit_status.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";

class LaunchpadStart : public LaunchpadTest {
 protected:
  CommandResult shell(const std::string& script) const {
    return runLimited({"/bin/sh", "-c", script});
  }
  std::string device() const { return " --device '" + root().string() + "' "; }
};

TEST_F(LaunchpadStart, IsRefusedWithTooFewDescriptors) {
  const CommandResult refused =
      shell("ulimit -n 40; exec " + kQuillon + " launchpad --type none" + device());
  EXPECT_EQ(refused.status, kServiceFailed);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(refused.err, StartsWith("quillon: the launch pad needs "));
  EXPECT_THAT(refused.err, HasSubstr(" file descriptors, and the limit is 40; "));
  EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
}

// The application gets the questions of the probe as its standard input.
TEST_F(LaunchpadStart, WithoutStandardInputKeepsThatOfTheClient) {
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  close(STDIN_FILENO);
  start(1);
  dup2(kept, STDIN_FILENO);
  close(kept);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  RunningProbe probe(root(), "inhouse");
  EXPECT_EQ(served(), 1);
  const fs::path process = "/proc/" + probe.ask("process");
  EXPECT_THAT(fs::read_symlink(process / "fd/0").string(), StartsWith("pipe:"));
}

// The next file that the client opens must not become the application's standard input, which would
// wait for the launch pad then.
TEST_F(LaunchpadStart, AClientWithoutStandardInputHandsOverAnEmptyOne) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  const CommandResult ending =
      shell("exec " + kQuillon + " launch" + device() + "--type inhouse --verbose " + kProbe +
            " -- --answers /tmp/answers <&-");
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.err, HasSubstr("launched by the launch pad"));
}

}  // namespace
}  // namespace quillon::test
