#include "plugin/src/plugin-util/privileges.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/support/recording_platform.h"

namespace quillon::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::ExitedWithCode;
using ::testing::StartsWith;

constexpr char kPlatform[] = "http://velora.example/privilege/internal/default/platform";
constexpr char kAppdebug[] = "http://velora.example/privilege/internal/appdebugging";

class Privileges : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform().processes[getpid()] = "org.example";
  }
  static void declare(std::vector<std::string> privileges) {
    platform().packages = {{"org.example", "/r", std::move(privileges), {}}};
  }
};

TEST_F(Privileges, FindThePlatformPrivilegeInThePackageOfTheProcess) {
  declare({kAppdebug, kPlatform});
  checkAppHasPlatformPrivilege();  // returns
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 ### HasPlatformPrivilege() called ###", "4 Package ID : org.example",
                          std::string("3 ") + kAppdebug, std::string("3 ") + kPlatform,
                          std::string("4 ### Have ") + kPlatform + " privilege ###"));
}

TEST_F(Privileges, TheTwoAreDistinguished) {
  declare({kAppdebug});
  EXPECT_TRUE(HasAppdebugPrivilege());
  EXPECT_EQ(platform().lines().front(), "4 ### HasAppdebugPrivilege() called ###");
  EXPECT_FALSE(HasPlatformPrivilege());
  declare({std::string(kPlatform) + "x", std::string(kPlatform).substr(1)});
  EXPECT_FALSE(HasPlatformPrivilege());
}

TEST_F(Privileges, AreTracedBySignature) {
  declare({kAppdebug, kPlatform});
  checkAppHasPlatformPrivilege();
  EXPECT_TRUE(HasAppdebugPrivilege());
  for (const char* signature : {"void checkAppHasPlatformPrivilege()",
                                "bool HasPlatformPrivilege()", "bool HasAppdebugPrivilege()"}) {
    EXPECT_THAT(platform().trace,
                Contains(AllOf(StartsWith("begin plugin-util.cc("), EndsWith(signature))));
  }
}

void checkInChild() {
  platform().processes[getpid()] = "org.example";
  platform().echo = true;
  checkAppHasPlatformPrivilege();
  _exit(77);
}

TEST_F(Privileges, AMissingPlatformPrivilegeEndsTheProcessQuietly) {
  declare({kAppdebug});
  EXPECT_EXIT(
      checkInChild(), ExitedWithCode(0),
      "6 QUILLON plugin-util.cc: checkAppHasPlatformPrivilege.*\x1b.31m### This App doesn't "
      "have platform privilege ###");
}

TEST_F(Privileges, AProcessWithoutAPackageHasNone) {
  EXPECT_EXIT(
      {
        platform().reset();
        platform().echo = true;
        checkAppHasPlatformPrivilege();
        _exit(77);
      },
      ExitedWithCode(0),
      "package_info_create return error code : -1(.|\n)*doesn't have platform privilege");
}

}  // namespace
}  // namespace quillon::test
