// A launch pad that reads launch profiles from a slow disk at its start.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

class LaunchpadReadAhead : public LaunchpadTest {
 protected:
  bool prepareLaunchpadProcess() const override {
    return setenv("LD_PRELOAD", QUILLON_SLOW_DISK, 1) == 0;
  }
  pid_t reader() const { return std::atoi(contentOf(at("/tmp/reader")).c_str()); }
};

// The profile of a launch has more ranges than start() waits seconds.
TEST_F(LaunchpadReadAhead, DelaysNoClientAndEndsWithTheLaunchPad) {
  ASSERT_EQ(launch({kClock, "--direct"}).status, 0);
  start(1);
  ASSERT_TRUE(eventually([&] { return reader() > 0; }));
  const pid_t reader = this->reader();
  EXPECT_NE(reader, launchpad());
  EXPECT_TRUE(isAlive(reader));
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(reader) + "/fd")) {
    std::error_code ended;
    EXPECT_THAT(fs::read_symlink(entry, ended).string(),
                ::testing::Not(::testing::HasSubstr("socket:")));
  }
  EXPECT_EQ(control("stop").status, 0);
  EXPECT_EQ(endOfLaunchpad(), 0);
  EXPECT_TRUE(eventually([&] { return !isAlive(reader); }));
}

}  // namespace
}  // namespace quillon::test
