#include <gmock/gmock.h>
#include <link.h>

#include <algorithm>
#include <cstring>
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

#ifdef QUILLON_FRONT_IS_STATIC
// A client of the launch pad needs neither the dynamic linker nor a library.
TEST(Front, HasNoInterpreter) {
  const std::string file = contentsOf(QUILLON_COMMAND);
  ElfW(Ehdr) header{};
  ASSERT_GT(file.size(), sizeof header);
  std::memcpy(&header, file.data(), sizeof header);
  std::vector<ElfW(Phdr)> segments(header.e_phnum);
  std::memcpy(segments.data(), file.data() + header.e_phoff, header.e_phnum * sizeof segments[0]);
  ASSERT_FALSE(segments.empty());
  EXPECT_TRUE(std::none_of(segments.begin(), segments.end(),
                           [](const auto& segment) { return segment.p_type == PT_INTERP; }));
  EXPECT_EQ(header.e_type, ET_DYN);  // its addresses are random
}
#endif

}  // namespace
}  // namespace quillon::test
