// Calls the exported functions of the built plug-in as a launcher does.
#include <gmock/gmock.h>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Exported = DeviceLaunch;

constexpr char kNoCapabilities[] = "0000000000000000";

TEST_F(Exported, InitializeSetsTheEnvironment) {
  const DriverRun launched = run({"initialize=inhouse", "environment=DOTNET_APP",
                                  "environment=DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER"});
  EXPECT_EQ(launched.result("environment", 0), "1");
  EXPECT_EQ(launched.result("environment", 1), "0");
}

TEST_F(Exported, AWordAnywhereInTheTypeSelectsTheMode) {
  for (const char* type : {"inhouse", "xinhousey", "inhouse-apitest", "normal-inhouse"}) {
    const DriverRun launched = run({std::string("initialize=") + type});
    EXPECT_THAT(launched.lines(), Contains("4 [quillon-tv-plugin] Inhouse App")) << type;
    EXPECT_THAT(launched.lines(), Contains("4 ### PluginDotnetInhouse Initialize called ###"));
    EXPECT_THAT(launched.lines(), Contains(std::string("4 ##### AppType : ") + type));
  }
}

TEST_F(Exported, AnUnrecognisedTypeBuildsNothing) {
  const DriverRun launched =
      run({"initialize=unknown", "get_tpa", "get_dll_path", "get_extra_dll_path"});
  EXPECT_EQ(launched.status, 0);
  EXPECT_THAT(launched.linesFrom("4 [quillon-tv-plugin] plugin_initialize"),
              ElementsAre("4 [quillon-tv-plugin] plugin_initialize", "4 ##### AppType : unknown",
                          "6 Wrong parameter : unknown", "4 [quillon-tv-plugin] plugin_get_tpa",
                          "4 [quillon-tv-plugin] plugin_get_dll_path",
                          "3 Dll Path : ", "4 [quillon-tv-plugin] plugin_get_extra_dll_path",
                          "3 Extra Dll Path : "));
  EXPECT_TRUE(launched.result("get_tpa").is_null());
  EXPECT_EQ(launched.result("get_dll_path"), "");
  EXPECT_EQ(launched.result("get_extra_dll_path"), "");
}

TEST_F(Exported, AnUnrecognisedTypeKeepsTheEarlierChain) {
  const DriverRun launched = run({"initialize=inhouse", "initialize=unknown", "get_dll_path"});
  EXPECT_THAT(launched.lines(),
              Contains("4 ### PluginDotnetInhouse Initialize called ###").Times(2));
  EXPECT_THAT(launched.messages(6), Contains("Wrong parameter : unknown"));
  EXPECT_THAT(launched.result("get_dll_path").get<std::string>(), HasSubstr("tvappapi"));
}

TEST_F(Exported, ASecondInitializeBuildsANewChain) {
  const DriverRun launched =
      run({"initialize=inhouse", "initialize=inhouse", "get_extra_dll_path"});
  EXPECT_THAT(launched.lines(), Contains("3 Decorator").Times(2));
  EXPECT_EQ(launched.status, 0);
}

TEST_F(Exported, TheNativeSearchPathIsEmpty) {
  const DriverRun launched = run({"initialize=inhouse", "get_native_dll_searching_path"});
  EXPECT_EQ(launched.result("get_native_dll_searching_path"), "");
}

TEST_F(Exported, LogControlIsClaimedEveryTime) {
  const DriverRun launched = run({"initialize=inhouse", "has_log_control", "has_log_control"});
  EXPECT_EQ(launched.result("has_log_control", 0), true);
  EXPECT_EQ(launched.result("has_log_control", 1), true);
}

TEST_F(Exported, PreloadCallsTheManagedRoutineThroughTheRuntime) {
  const DriverRun launched = run({"initialize=inhouse", "set_coreclr_info", "preload"});
  const nlohmann::json& preload = launched.result("preload");
  EXPECT_EQ(preload["calls"], 1);
  EXPECT_EQ(preload["delegate"], (nlohmann::json{{"host", true},
                                                 {"domain", 7},
                                                 {"assembly", "Preload"},
                                                 {"type", "Velora.Preload"},
                                                 {"method", "Init"}}));
}

TEST_F(Exported, AFailedDelegateIsLogged) {
  const DriverRun launched = run({"initialize=inhouse", "set_coreclr_info=-2147024894", "preload"});
  EXPECT_EQ(launched.result("preload")["calls"], 0);
  EXPECT_THAT(launched.messages(6),
              Contains("Create delegate for Launch prepared function is fail (0x80070002)"));
}

TEST_F(Exported, BeforeExecuteEmptiesTheCapabilities) {
  const DriverRun launched = run(
      {"initialize=inhouse", "before_execute", "status=CapEff", "status=CapPrm", "status=CapInh"});
  for (int set = 0; set < 3; ++set) {
    EXPECT_EQ(launched.result("status", set), kNoCapabilities);
  }
  EXPECT_THAT(launched.messages(6), ::testing::IsEmpty());
}

TEST_F(Exported, APreloadedProcessKeepsItsCapabilities) {
  const DriverRun launched = run({"initialize=inhouse", "set_coreclr_info", "preload",
                                  "status=CapEff", "before_execute", "status=CapEff"});
  EXPECT_EQ(launched.result("status", 0), launched.result("status", 1));
  if (launched.result("status", 0) == kNoCapabilities) {
    QUILLON_SKIP("the device root was entered without any capability to keep");
  }
}

// A process that serves many applications in turn would run out of descriptors.
TEST_F(Exported, OnlyThePlaceholdersAndTheWatchOfAKeyStayOpen) {
  constexpr std::size_t kPlaceholders = 10;
  constexpr std::size_t kWatches = 1;
  constexpr char kApp[] = "org.example.app";
  constexpr char kExec[] = "/opt/usr/apps/org.example.app/bin/A.dll";
  makeApplication(kApp, "\"/tv/metadata/d.pc/required\" = \"one\"");
  put("/opt/usr/apps/one/shared/res/d.pc/Name.txt");
  put("/opt/usr/home/owner/share/gctracer/org.example.other");
  const DriverRun launched =
      run({"descriptors", "initialize=inhouse", "get_tpa", "get_dll_path", "get_extra_dll_path",
           "set_coreclr_info", "preload", std::string("set_app_info=") + kApp + "," + kExec,
           "before_execute", "check_signature=/opt", "finalize", "descriptors"},
          kApp);
  EXPECT_EQ(launched.result("descriptors", 1).size(),
            launched.result("descriptors", 0).size() + kPlaceholders + kWatches)
      << launched.output;
}

TEST_F(Exported, FinalizeSetsTheTerminationFlag) {
  const DriverRun launched = run({"initialize=inhouse", "finalize"});
  EXPECT_EQ(launched.result("finalize")["before"], false);
  EXPECT_EQ(launched.result("finalize")["after"], true);
  EXPECT_EQ(launched.lines().back(), "3 Decorator::Finalize");
  EXPECT_THAT(launched.spans, Contains(HasSubstr("virtual void PluginDotnetInhouse::Finalize()")));
}

TEST_F(Exported, ADescriptorThatCannotBeOpenedLeavesTheExportAsAFailure) {
  const DriverRun launched = run({"initialize=inhouse", "starved_get_extra_dll_path"});
  ASSERT_EQ(launched.results.size(), 2U) << launched.output;
  EXPECT_THAT(launched.results.back().value("threw", ""), HasSubstr("Fail to open /proc/self"));
  EXPECT_THAT(launched.messages(6), Contains("Failed to open /proc/self"));
}

TEST_F(Exported, SpansCarryTheSignatures) {
  const DriverRun launched = run({"initialize=inhouse", "set_coreclr_info", "get_tpa"});
  for (const char* signature :
       {"void plugin_initialize(const char*)",
        "void plugin_set_coreclr_info(void*, unsigned int, coreclr_create_delegate_ptr)",
        "char* plugin_get_tpa()", "PluginDotnetInhouse::PluginDotnetInhouse()",
        "virtual void PluginDotnetInhouse::Initialize()",
        "virtual std::string PluginDotnetInhouse::GetTPA()",
        "std::string PluginDotnetInhouse::GetTPAFromCache()",
        "virtual std::string PluginDotnetInhouse::GetDllPath()"}) {
    EXPECT_THAT(launched.spans, Contains(::testing::EndsWith(std::string(") ") + signature)));
  }
}

}  // namespace
}  // namespace quillon::test
