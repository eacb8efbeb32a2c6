#include "quillon/cli/front/plain_launch.h"

#include <gmock/gmock.h>

#include "tests/support/scoped_variable.h"

namespace quillon::cli {
namespace {

using test::ScopedVariable;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::optional<host::LaunchOptions> read(std::vector<std::string_view> arguments) {
  arguments.insert(arguments.begin(), "quillon");
  return plainLaunch(arguments);
}

TEST(PlainLaunch, NeedsADeviceAndAnApplication) {
  const ScopedVariable variable("QUILLON_DEVICE", "");
  const ScopedVariable home("HOME", "");
  const ScopedVariable data("XDG_DATA_HOME", "");
  const auto options = read({"launch", "--device", "/d", "org.example.clock"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->device, "/d");
  EXPECT_EQ(options->appId, "org.example.clock");
  EXPECT_FALSE(options->raw || options->direct || options->preload || options->plan);
  EXPECT_FALSE(options->type || options->exec);
  EXPECT_THAT(options->arguments, IsEmpty());
  EXPECT_FALSE(read({"launch", "org.example.clock"}));
  EXPECT_FALSE(read({"launch", "--device", "/d"}));
}

TEST(PlainLaunch, ReadsEachOfItsOptions) {
  const auto options = read({"launch", "--raw", "--id", "clock", "--preload", "--device", "/d",
                             "--type", "dotnet", "--path", "/opt/c.dll", "--direct"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->device, "/d");
  EXPECT_EQ(options->appId, "clock");
  EXPECT_EQ(options->type, "dotnet");
  EXPECT_EQ(options->exec, "/opt/c.dll");
  EXPECT_TRUE(options->raw && options->direct && options->preload);
}

TEST(PlainLaunch, LeavesTheApplicationsArgumentsAsTheyAre) {
  const auto options = read({"launch", "--device", "/d", "clock", "--", "--raw", "", "--", "x"});
  ASSERT_TRUE(options);
  EXPECT_FALSE(options->raw);
  EXPECT_THAT(options->arguments, ElementsAre("--raw", "", "--", "x"));
}

TEST(PlainLaunch, LeavesOtherCommandsToTheParser) {
  EXPECT_FALSE(plainLaunch({}));
  EXPECT_FALSE(read({}));
  EXPECT_FALSE(read({"--version"}));
  EXPECT_FALSE(read({"device", "--device", "/d", "clock"}));
}

// Other options, other spellings of the same options, and every kind of mistake.
class NotPlain : public ::testing::TestWithParam<std::vector<std::string_view>> {};

TEST_P(NotPlain, IsLeftToTheParser) {
  std::vector<std::string_view> arguments = {"launch", "--device", "/d", "clock"};
  arguments.insert(arguments.end(), GetParam().begin(), GetParam().end());
  EXPECT_FALSE(read(arguments));
}

using Arguments = std::vector<std::string_view>;
INSTANTIATE_TEST_SUITE_P(
    PlainLaunch, NotPlain,
    ::testing::Values(Arguments{"--help"}, Arguments{"--plan"}, Arguments{"--verbose"},
                      Arguments{"--writable", "/w"}, Arguments{"--plugin", "/p"},
                      Arguments{"--diagnostics", "off"}, Arguments{"--type=dotnet"},
                      Arguments{"--raw=true"}, Arguments{"-r"}, Arguments{"--type"},
                      Arguments{"--type", ""}, Arguments{"--type", "--raw"},
                      Arguments{"--type", "--"}, Arguments{"--type", "++"}, Arguments{"++"},
                      Arguments{""}, Arguments{"another"}, Arguments{"--id", "another"},
                      Arguments{"--device", "/e"}, Arguments{"--raw", "--raw"},
                      Arguments{"--type", "a", "--type", "b"}));

}  // namespace
}  // namespace quillon::cli
