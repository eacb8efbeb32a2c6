// Whether the applications of a launch pad share one address layout.
#include <gmock/gmock.h>

#include <array>
#include <sstream>

#include "quillon/base/exit_status.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// Where a process has mapped a library first; empty if it has not.
std::string addressOf(const std::string& library, const std::string& process) {
  std::istringstream maps(contentOf("/proc/" + process + "/maps"));
  for (std::string line; std::getline(maps, line);) {
    if (line.ends_with("/" + library)) {
      return line.substr(0, line.find('-'));
    }
  }
  return {};
}

class AddressLayout : public LaunchpadTest {
 protected:
  using Addresses = std::array<std::string, 3>;

  // Starts a launch pad and fills the pool of the launches below.
  void prepare(const std::vector<std::string>& options) {
    start(2, 0, options);
    { RunningProbe direct(root(), "inhouse"); }
    ASSERT_TRUE(awaitProcesses("ready", 2)) << status() << errors();
  }

  // Runs an application in a prepared process. Returns the addresses of three libraries.
  Addresses launchOne() {
    const int before = served();
    RunningProbe probe(root(), "inhouse");
    const std::string process = probe.ask("process");
    const Addresses found = {addressOf("libc.so.6", process), addressOf("libcoreclr.so", process),
                             addressOf("libquillon-tv-plugin.so", process)};
    EXPECT_EQ(probe.ask("variable QUILLON_APP_ID"), kProbe);
    EXPECT_EQ(probe.quit(), 0);
    EXPECT_EQ(served(), before + 1) << probe.errors() << errors();
    return found;
  }
};

TEST_F(AddressLayout, IsSharedByTheApplicationsOfALaunchPad) {
  prepare({});
  const Addresses one = launchOne();
  EXPECT_THAT(one, Each(Not(IsEmpty())));
  EXPECT_EQ(one, launchOne());
}

TEST_F(AddressLayout, IsNotSharedWithFresh) {
  prepare({"--fresh"});
  const Addresses one = launchOne();
  const Addresses other = launchOne();
  EXPECT_THAT(one, Each(Not(IsEmpty())));
  for (size_t i = 0; i < one.size(); ++i) {
    EXPECT_NE(one.at(i), other.at(i)) << i;
  }
}

TEST_F(AddressLayout, TheInternalCommandIsOfNoUseToOthers) {
  const std::string quillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";
  const CommandResult help = run({quillon, "launchpad", "--help"});
  EXPECT_THAT(help.out, HasSubstr("--fresh"));
  EXPECT_THAT(help.out, Not(HasSubstr("worker")));
  const CommandResult misuse = run({quillon, "launchpad", "worker", "0", "1"});
  EXPECT_EQ(misuse.status, kUsage);
  EXPECT_THAT(misuse.err, HasSubstr("'launchpad worker' is an internal command"));
}

}  // namespace
}  // namespace quillon::test
