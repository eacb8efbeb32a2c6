// Applications that load plug-ins with System.Runtime.Loader.AssemblyDependencyResolver.
#include <gmock/gmock.h>

#include "tests/system/frameworks/application_device.h"
#include "tests/system/launch/running_zone.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;

constexpr char kPlugins[] = "org.velora.test.plugins";
constexpr char kGreeter[] = "/opt/usr/apps/org.velora.test.plugins/greeter/Greeter.dll";
constexpr char kGreeting[] = "greetings, the library for any\n";

class PluginResolver : public ApplicationTest {
 protected:
  void SetUp() override {
    ApplicationTest::SetUp();
    if (!IsSkipped()) {
      const fs::path folder = package(kPlugins, "Plugins");
      fs::copy(fs::path(QUILLON_APPLICATIONS) / "Greeter", folder / "greeter");
      install(kPlugins, "Plugins.dll");
    }
  }
};

TEST_F(PluginResolver, FindsTheDependenciesOfAPlugin) {
  EXPECT_EQ(dotnet(kPlugins, "Plugins.dll", {fresh(kPlugins) / "greeter/Greeter.dll"}).out,
            kGreeting);
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = direct(kPlugins, {kGreeter}, type);
    EXPECT_EQ(launched.out, kGreeting) << type << launched.err;
    EXPECT_EQ(launched.status, 0);
  }
}

TEST_F(PluginResolver, FindsThemInAPreparedProcess) {
  for (const std::string& type : kAllTypes) {
    const CommandResult launched = prepared(kPlugins, {kGreeter}, type);
    EXPECT_EQ(launched.out, kGreeting) << type << launched.err;
  }
}

TEST_F(PluginResolver, FindsThemInAZone) {
  const RunningZone zone(root());
  ASSERT_NE(zone.holder(), "") << zone.started().err;
  const CommandResult launched = direct(kPlugins, {kGreeter}, "dotnet");
  EXPECT_EQ(launched.out, kGreeting) << launched.err;
}

}  // namespace
}  // namespace quillon::test
