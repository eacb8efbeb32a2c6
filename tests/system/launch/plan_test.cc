// The output of --plan: what a launch would do, and why it would be refused.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "quillon/base/exit_status.h"
#include "quillon/host/plugin/launch_calls.h"
#include "tests/support/skip.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr char kNoPrivilege[] = R"(
[package]
id = "org.velora.sample.clock"
version = "2.0"
files = "org.velora.sample.clock"
[[application]]
id = "org.velora.sample.clock"
exec = "bin/SampleClock.dll"
)";

class Plan : public LaunchTest {
 protected:
  void SetUp() override {
    LaunchTest::SetUp();
    if (!IsSkipped()) {
      makeDevice("none");
    }
  }
  nlohmann::json json(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> arguments = {kClock, "--plan", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return nlohmann::json::parse(launchCaptured(arguments).out);
  }
};

TEST_F(Plan, ListsTheCallsOfALaunchInOrder) {
  const auto calls = json()["calls"].get<std::vector<std::string>>();
  const std::string exec = "/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll";
  EXPECT_THAT(calls,
              ::testing::ElementsAre(
                  "plugin_initialize(\"inhouse\")", "plugin_get_tpa()", "plugin_get_dll_path()",
                  "plugin_get_native_dll_searching_path()", "plugin_get_extra_dll_path()",
                  "coreclr_initialize()", "plugin_set_coreclr_info()",
                  "plugin_set_app_info(\"org.velora.sample.clock\", \"" + exec + "\")",
                  "plugin_has_log_control()", "plugin_before_execute()",
                  "coreclr_execute_assembly(\"" + exec + "\")", "plugin_finalize()",
                  "coreclr_shutdown_2()"));
}

// The name of the function in a call of the plan.
std::string functionOf(const std::string& call) { return call.substr(0, call.find('(')); }

TEST_F(Plan, ListsTheStatedCallsOfADirectLaunch) {
  const auto calls = json({"--preload"})["calls"].get<std::vector<std::string>>();
  ASSERT_EQ(calls.size(), host::kDirectLaunchCalls.size());
  for (size_t i = 0; i < calls.size(); ++i) {
    EXPECT_EQ(functionOf(calls[i]), host::nameOf(host::kDirectLaunchCalls[i]));
  }
}

TEST_F(Plan, DoesNotCallLogControlWithRaw) {
  EXPECT_THAT(json()["calls"], ::testing::Contains("plugin_has_log_control()"));
  EXPECT_THAT(json({"--raw"})["calls"],
              ::testing::Not(::testing::Contains("plugin_has_log_control()")));
}

TEST_F(Plan, ShowsListsUnchangedAndPropertiesWithoutEmptyEntries) {
  const auto plan = json();
  EXPECT_THAT(plan["lists"]["plugin_get_extra_dll_path"].get<std::string>(),
              StartsWith(":/proc/self/fd/"));
  const std::string appPaths = plan["properties"]["APP_PATHS"];
  EXPECT_THAT(appPaths, StartsWith("/opt/usr/apps/org.velora.sample.clock/bin:"));
  EXPECT_EQ(appPaths.find("::"), std::string::npos);
  EXPECT_THAT(plan["placeholders"], SizeIs(10));
}

TEST_F(Plan, ShowsTheDirectoriesOfTheUsedPackages) {
  const auto plan = json();
  EXPECT_EQ(plan["sharedDirectories"],
            nlohmann::json::array({"/opt/usr/apps/org.velora.sample.calendar/shared/res/"}));
  ASSERT_THAT(plan["requiredPackages"], SizeIs(1));
  EXPECT_EQ(plan["requiredPackages"][0]["package"], "org.velora.sample.moon");
  EXPECT_EQ(plan["requiredPackages"][0]["directory"],
            "/opt/usr/apps/org.velora.sample.moon/shared/res/d.pc/");
}

TEST_F(Plan, AssignsPlaceholdersInOrderToTheDirectoriesThatExist) {
  write(at("/opt/usr/apps/here/shared/res/d.pc/Here.dll"), "");
  installClock(std::string(kNoPrivilege) +
               "[application.metadata]\n\"/tv/metadata/d.pc/required\" = \"gone;;here\"\n");
  const auto plan = json();
  ASSERT_THAT(plan["requiredPackages"], SizeIs(2));
  EXPECT_TRUE(plan["requiredPackages"][0]["placeholder"].is_null());
  EXPECT_EQ(plan["requiredPackages"][1]["placeholder"], plan["placeholders"][0]);
}

TEST_F(Plan, ShowsWhetherTheTrustedListComesFromTheCache) {
  write(at("/usr/share/dotnet.velora/framework/Some.dll"), "");
  EXPECT_EQ(json()["trustedAssemblies"]["source"], "search");
  EXPECT_EQ(json()["trustedAssemblies"]["source"], "cache");
  write(at("/opt/usr/home/owner/share/dotnet/TPA.txt"), "[START]torn");
  EXPECT_EQ(json()["trustedAssemblies"]["source"], "search");
}

TEST_F(Plan, ReadsAsTextForPeople) {
  const CommandResult plan = launch({kClock, "--plan"});
  EXPECT_THAT(plan.out, HasSubstr("application      org.velora.sample.clock\n"));
  EXPECT_THAT(plan.out, HasSubstr("  plugin_initialize(\"inhouse\")\n"));
  EXPECT_THAT(plan.out, HasSubstr("  org.velora.sample.moon: /opt/usr/apps/"));
}

TEST_F(Plan, ReportsInOneLineWhatTheMachineLacks) {
  const CommandResult plan = launch({kClock, "--plan"});
  EXPECT_THAT(plan.err, HasSubstr("quillon: to go further: no .NET runtime: wanted "
                                  "Microsoft.NETCore.App"));
  EXPECT_THAT(json()["missing"]["what"].get<std::string>(), StartsWith("no .NET runtime"));
}

TEST_F(Plan, EndsAsTheLaunchIfARuntimeIsMissing) {
  if (!json()["refusals"].empty()) {
    QUILLON_SKIP("the samples are not built");
  }
  EXPECT_EQ(launch({kClock, "--plan"}).status, kNoRuntime);
  const CommandResult full =
      run({"/bin/sh", "-c",
           std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon launch --plan " + kClock +
               " --device " + root().string() + " >/dev/full"});
  EXPECT_EQ(full.status, kServiceFailed) << full.err;
  EXPECT_THAT(full.err, HasSubstr("the standard output cannot be written"));
}

TEST_F(Plan, PredictsAMissingAssembly) {
  const CommandResult plan = launch({kClock, "--plan", "--path", "/opt/usr/none.dll"});
  EXPECT_EQ(plan.status, kNoAssembly);
  EXPECT_THAT(plan.err, HasSubstr("'/opt/usr/none.dll'"));
}

TEST_F(Plan, PredictsAMissingPrivilege) {
  installClock(kNoPrivilege);
  write(at("/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll"), "");
  const auto refusals = json()["refusals"];
  ASSERT_FALSE(refusals.empty());
  EXPECT_EQ(refusals.back()["status"], kPrivilegeMissing);
  EXPECT_THAT(refusals.back()["remedy"].get<std::string>(),
              HasSubstr("/privilege/internal/default/platform\" to the privileges"));
}

TEST_F(Plan, PredictsARefusedPathByItsTarget) {
  write(at("/opt/data/Real.dll"), "");
  std::filesystem::create_symlink("/opt/data/Real.dll", at("/opt/usr/Link.dll"));
  const auto refusals = json({"--path", "/opt/usr/Link.dll"})["refusals"];
  ASSERT_FALSE(refusals.empty());
  EXPECT_EQ(refusals.back()["status"], kPathRefused);
  EXPECT_THAT(refusals.back()["what"].get<std::string>(), EndsWith("'/opt/data/Real.dll'"));
}

TEST_F(Plan, NeedsNoRuntimeToShowThePlanOfALaunch) {
  const CommandResult result = launch({kClock});
  EXPECT_EQ(result.status, kNoRuntime);
  EXPECT_THAT(result.out, HasSubstr("plugin_set_coreclr_info()"));
  EXPECT_THAT(result.err, StartsWith("quillon: no .NET runtime: wanted Microsoft.NETCore.App"));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

}  // namespace
}  // namespace quillon::test
