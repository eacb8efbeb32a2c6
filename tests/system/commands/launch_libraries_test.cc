#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class LaunchCommand : public CommandTest {
 protected:
  // Runs a launch of a missing application, and returns what the dynamic loader reports.
  std::string loadedBy(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"launch", "--device", device(), "org.example.missing"});
    const Finished launched = run(commandOf(arguments), {{"LD_DEBUG", "files"}});
    constexpr int kNotInstalled = 104;
    EXPECT_EQ(launched.status, kNotInstalled) << launched.err;
    return launched.err;
  }
};

class PartnerCommand : public CommandTest {};

TEST_F(LaunchCommand, LoadsNeitherTheCommandsNorLibcryptoForAPlainLaunch) {
  const std::string loaded = loadedBy({});
  EXPECT_THAT(loaded, HasSubstr("libquillon-platform"));
  EXPECT_THAT(loaded, Not(HasSubstr("libquillon-commands")));
  EXPECT_THAT(loaded, Not(HasSubstr("libcrypto")));
}

TEST_F(LaunchCommand, LoadsTheCommandsWithoutLibcryptoForOtherCommandLines) {
  const std::string loaded = loadedBy({"--verbose"});
  EXPECT_THAT(loaded, HasSubstr("libquillon-commands"));
  EXPECT_THAT(loaded, Not(HasSubstr("libcrypto")));
}

TEST_F(PartnerCommand, LoadsLibcrypto) {
  const Finished helped = run(commandOf({"partner", "--help"}), {{"LD_DEBUG", "files"}});
  EXPECT_EQ(helped.status, 0);
  EXPECT_THAT(helped.err, HasSubstr("libcrypto"));
}

}  // namespace
}  // namespace quillon::test
