// plugin_set_app_info: which applications the plug-in accepts and which it refuses.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kApp[] = "com.example.weatherapp";
constexpr char kExec[] = "/opt/usr/apps/com.example.weatherapp/bin/A.dll";
constexpr char kPrivilege[] = "http://velora.example/privilege/internal/default/platform";

class AppInfo : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped()) {
      return;
    }
    makeApplication(kApp);
  }
  DriverRun launch(const std::string& exec, const std::string& id = kApp) {
    return run({"initialize=inhouse", "set_app_info=" + id + "," + exec, "process_name"}, kApp);
  }
  // Expects a refusal: status 0, no further step, and `error` as the last log line.
  static void expectRefused(const DriverRun& launched, const std::string& error) {
    EXPECT_EQ(launched.status, 0);
    EXPECT_EQ(launched.results.size(), 1U) << launched.output;
    EXPECT_EQ(launched.lines().back(), "6 " + error);
  }
};

TEST_F(AppInfo, AcceptsAPrivilegedApplication) {
  const DriverRun launched = launch(kExec);
  EXPECT_EQ(launched.result("process_name"), "DN_e.weatherapp");
  std::vector<std::string> lines = launched.linesFrom("4 [quillon-tv-plugin] plugin_set_app_info");
  lines.resize(
      std::min<std::size_t>(lines.size(), 11));  // the following lines are not from the strategy
  EXPECT_THAT(lines,
              ElementsAre("4 [quillon-tv-plugin] plugin_set_app_info", "3 Decorator::SetAppInfo",
                          "4 ### SetAppInfo ###", "4 ### HasPlatformPrivilege() called ###",
                          std::string("4 Package ID : ") + kApp, std::string("3 ") + kPrivilege,
                          std::string("4 ### Have ") + kPrivilege + " privilege ###",
                          "4 ### plugin set app info called ###",
                          std::string("4 ### App ID : ") + kApp + " ###",
                          std::string("4 ### execPath : ") + kExec + " ###",
                          "4 Process Name : DN_e.weatherapp"));
  EXPECT_THAT(launched.spans,
              Contains(HasSubstr("virtual void PluginDotnetInhouse::SetAppInfo(const string&, "
                                 "const string&)")));
}

TEST_F(AppInfo, RefusesAPackageWithoutThePrivilegeFirst) {
  installApplication("org.poor", "", false);
  const DriverRun launched = run(
      {"initialize=inhouse", "set_app_info=org.poor,/no/such/file", "process_name"}, "org.poor");
  expectRefused(launched, "### This App doesn't have platform privilege ###");
  EXPECT_THAT(launched.lines(), Not(Contains("4 ### plugin set app info called ###")));
}

TEST_F(AppInfo, RefusesAProcessOfNoPackage) {
  const DriverRun launched = run(
      {"initialize=inhouse", std::string("set_app_info=") + kApp + "," + kExec, "process_name"});
  expectRefused(launched, "### This App doesn't have platform privilege ###");
  EXPECT_THAT(launched.lines(), Contains(HasSubstr("6 package_info_create return error code : ")));
}

TEST_F(AppInfo, RefusesAMissingFile) {
  expectRefused(launch("/opt/usr/apps/none/A.dll"), "### Use wrong execPath ###");
}

TEST_F(AppInfo, RefusesAFileElsewhereByItsAbsolutePath) {
  expectRefused(launch("/usr/../etc/passwd"), "### Not allowed App Path ### = /etc/passwd");
}

TEST_F(AppInfo, JudgesALinkByItsTarget) {
  std::filesystem::create_symlink("/etc/passwd", onMachine("/opt/usr/apps/link"));
  expectRefused(launch("/opt/usr/apps/link"), "### Not allowed App Path ### = /etc/passwd");
}

TEST_F(AppInfo, AllowsTheThreePlaces) {
  for (const char* path : {"/usr/apps/one/A.dll", "/opt/usr/two/A.dll", "/opt/share/three/A.dll"}) {
    put(path);
    EXPECT_EQ(launch(path).result("process_name"), "DN_e.weatherapp") << path;
  }
}

TEST_F(AppInfo, AcceptsAnEmptyId) {
  const DriverRun launched = launch(kExec, "");
  EXPECT_EQ(launched.result("process_name"), "DN_");
  for (const std::string& marker : launched.markers) {
    EXPECT_THAT(marker, Not(HasSubstr("kest Client")));
  }
}

TEST_F(AppInfo, SwitchesToDirectCallsForOneComponent) {
  const DriverRun launched =
      run({"initialize=inhouse", "direct_call_mode",
           std::string("set_app_info=com.korvane.tv.csfs.more,") + kExec, "direct_call_mode",
           std::string("set_app_info=") + kApp + "," + kExec, "direct_call_mode"},
          kApp);
  EXPECT_EQ(launched.result("direct_call_mode", 0), 0);
  EXPECT_EQ(launched.result("direct_call_mode", 1), 1);
  EXPECT_EQ(launched.result("direct_call_mode", 2), 1);
}

}  // namespace
}  // namespace quillon::test
