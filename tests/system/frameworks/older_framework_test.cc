// Applications that were built for an older framework than the device's.
#include <gmock/gmock.h>

#include "tests/system/frameworks/application_device.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;

constexpr char kOld[] = "org.velora.test.old";

class OlderFramework : public ApplicationTest {
 protected:
  void SetUp() override {
    ApplicationTest::SetUp();
    if (!IsSkipped()) {
      package(kOld, "Assets");
      replaceIn(config(), "\"version\": \"", "\"version\": \"8.0.0\", \"was\": \"");
    }
  }
  std::filesystem::path config() const { return fresh(kOld) / "bin/Assets.runtimeconfig.json"; }
};

constexpr char kWarning[] =
    "quillon: application 'org.velora.test.old' was built for Microsoft.NETCore.App 8.0.0 and "
    "allows no newer major version: the device runs it, dotnet would not; build it for the "
    "device's .NET version and install it again\n";

TEST_F(OlderFramework, IsReplacedByTheDevicesWithOneWarning) {
  constexpr int kRefusedByDotnet = 150;
  ASSERT_EQ(dotnet(kOld, "Assets.dll").status, kRefusedByDotnet);
  EXPECT_EQ(install(kOld, "Assets.dll").err, kWarning);
  const CommandResult launched = direct(kOld);
  EXPECT_THAT(launched.out, HasSubstr("the library for any\n"));
  EXPECT_EQ(launched.err.find(kWarning), 0U) << launched.err;
  EXPECT_EQ(launched.err.rfind("was built for"), launched.err.find("was built for"));
}

TEST_F(OlderFramework, IsReplacedInAPreparedProcessToo) {
  install(kOld, "Assets.dll");
  const CommandResult launched = prepared(kOld);
  EXPECT_THAT(launched.out, HasSubstr("the library for any\n"));
  EXPECT_EQ(launched.err.find(kWarning), 0U) << launched.err;
}

TEST_F(OlderFramework, IsReportedByThePlan) {
  install(kOld, "Assets.dll");
  const CommandResult plan = launch({kOld, "--plan"});
  EXPECT_EQ(plan.err, kWarning);
  EXPECT_THAT(plan.out, HasSubstr("  application 'org.velora.test.old' was built for"));
}

TEST_F(OlderFramework, IsNotReportedIfTheApplicationAllowsANewerOne) {
  replaceIn(config(), "\"framework\"", "\"rollForward\": \"Major\", \"framework\"");
  EXPECT_EQ(install(kOld, "Assets.dll").err, "");
  EXPECT_EQ(launch({kOld, "--plan"}).err, "");
}

}  // namespace
}  // namespace quillon::test
