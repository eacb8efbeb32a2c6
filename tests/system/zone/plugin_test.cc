// The plug-in enters a real zone.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "plugin/src/plugin-dotnet/plugin_dotnet.h"
#include "tests/system/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class PluginInZone : public ZoneTest {};

TEST_F(PluginInZone, ADotnetApplicationEndsUpInside) {
  start();
  const std::string pid = std::to_string(holder());
  const Outcome outcome = inDevice([&] {
    PluginDotnet strategy;
    strategy.Initialize();
    strategy.SetAppInfo("org.example.clock",
                        "/usr/bin/env");  // outside the zone this would end the process
    std::cout << (namespaceOf("self", "mnt") == namespaceOf(pid, "mnt"))
              << ::access("/zone/appzone", F_OK);
    return 55;
  });
  EXPECT_EQ(outcome.status, 55);
  EXPECT_EQ(outcome.output, "1-1");
}

TEST_F(PluginInZone, AZoneWithoutAHolderRefusesTheLaunchAndLogsWhy) {
  start();
  const pid_t process = holder();
  ::kill(process, SIGKILL);
  ASSERT_TRUE(ends(process));
  const Outcome outcome = inDevice([] {
    platform().echo = true;
    PluginDotnet strategy;
    strategy.Initialize();
    return 55;
  });
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, AllOf(HasSubstr("6 ZONE the zone 'appzone' is not running"),
                                    HasSubstr("Zone Context is NULL!")));
}

TEST_F(PluginInZone, WithoutAZoneTheApplicationRunsInTheDeviceRoot) {
  const Outcome outcome = inDevice([] {
    PluginDotnet strategy;
    strategy.Initialize();
    strategy.SetAppInfo("org.example.clock", "/usr/bin/env");
    return 55;
  });
  EXPECT_EQ(outcome.status, 55);
}

}  // namespace
}  // namespace quillon::test
