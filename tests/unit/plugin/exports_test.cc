// Tests of the exported functions with a strategy that only records its calls.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "plugin/src/quillon-tv-plugin/process_state.h"
#include "quillon_tv_plugin.h"
#include "tests/support/recording_platform.h"
#include "tests/unit/plugin/fake_strategy.h"
#include "tests/unit/plugin/scripted_capabilities.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

// One call of the runtime's create-delegate function.
struct DelegateCall {
  void* host;
  unsigned int domain;
  std::string names;
};

std::vector<DelegateCall> delegateCalls;
int delegateStatus = 0;
void (*delegateFunction)() = nullptr;
int managedCalls = 0;

int createDelegate(void* host, unsigned int domain, const char* assembly, const char* type,
                   const char* method, void** delegate) {
  delegateCalls.push_back({host, domain, std::string(assembly) + "/" + type + "/" + method});
  *delegate = reinterpret_cast<void*>(delegateFunction);
  return delegateStatus;
}

class Exports : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    tvPluginMgr = &context_;
    directCallMode = 0;
    is_plugin_preload_called = false;
    checkOnTerminate = false;
    m_hostHandle = nullptr;
    m_domainId = 0;
    m_createDelegate = nullptr;
    delegateCalls.clear();
    delegateStatus = 0;
    delegateFunction = [] { ++managedCalls; };
    managedCalls = 0;
    capabilities() = {};
  }
  void TearDown() override {
    tvPluginMgr = nullptr;
    capabilities() = {};
  }

  // Expects the name of the trace span and the log lines of the call.
  static void expectScope(const char* signature) {
    EXPECT_THAT(platform().trace.front(),
                MatchesRegex("begin quillon-tv-plugin\\.cc\\([0-9]+\\) .*"));
    EXPECT_EQ(platform().trace.front().substr(platform().trace.front().find(") ") + 2), signature);
    EXPECT_EQ(platform().trace.back(), "end");
  }

  FakeStrategy strategy_;
  PluginContext context_{&strategy_};
};

TEST_F(Exports, TpaIsTheStrategysList) {
  strategy_.tpa = "/a/A.dll:/b/B.dll";
  EXPECT_STREQ(plugin_get_tpa(), "/a/A.dll:/b/B.dll");
  const char* again = plugin_get_tpa();
  EXPECT_EQ(again, tpalist.data());
  EXPECT_THAT(platform().markers, Contains("[quillon-tv-plugin] plugin_get_tpa").Times(2));
  EXPECT_EQ(platform().lines().back(), "3 TPA List : /a/A.dll:/b/B.dll");
  expectScope("char* plugin_get_tpa()");
}

TEST_F(Exports, AnEmptyTpaIsNullAndNotLogged) {
  strategy_.tpa = "";
  EXPECT_EQ(plugin_get_tpa(), nullptr);
  EXPECT_THAT(platform().lines(), ElementsAre("4 [quillon-tv-plugin] plugin_get_tpa"));
}

TEST_F(Exports, DllPathsAreNeverNull) {
  EXPECT_STREQ(plugin_get_dll_path(), "dll");
  EXPECT_STREQ(plugin_get_extra_dll_path(), "extra");
  strategy_.dll = strategy_.extra = "";
  EXPECT_STREQ(plugin_get_dll_path(), "");
  EXPECT_STREQ(plugin_get_extra_dll_path(), "");
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 [quillon-tv-plugin] plugin_get_dll_path", "3 Dll Path : dll",
                          "4 [quillon-tv-plugin] plugin_get_extra_dll_path",
                          "3 Extra Dll Path : extra", "4 [quillon-tv-plugin] plugin_get_dll_path",
                          "3 Dll Path : ", "4 [quillon-tv-plugin] plugin_get_extra_dll_path",
                          "3 Extra Dll Path : "));
  const char* dll = plugin_get_dll_path();
  EXPECT_EQ(dll, plugindllPath.data());
  const char* extra = plugin_get_extra_dll_path();
  EXPECT_EQ(extra, extraDllPath.data());
}

TEST_F(Exports, NativeSearchPathIsEmptyAndSilent) {
  EXPECT_STREQ(plugin_get_native_dll_searching_path(), "");
  EXPECT_THAT(platform().lines(), IsEmpty());
  EXPECT_THAT(strategy_.calls, IsEmpty());
  expectScope("char* plugin_get_native_dll_searching_path()");
}

TEST_F(Exports, PreloadRunsTheStrategyThenTheManagedRoutine) {
  int host = 0;
  plugin_set_coreclr_info(&host, 7, createDelegate);
  expectScope("void plugin_set_coreclr_info(void*, unsigned int, coreclr_create_delegate_ptr)");
  EXPECT_EQ(m_hostHandle, &host);
  EXPECT_EQ(m_domainId, 7U);
  EXPECT_EQ(m_createDelegate, createDelegate);
  strategy_.onCall = [] {
    EXPECT_TRUE(is_plugin_preload_called);
    EXPECT_THAT(delegateCalls, IsEmpty());
  };
  plugin_preload();
  EXPECT_THAT(strategy_.calls, ElementsAre("Preload()"));
  ASSERT_EQ(delegateCalls.size(), 1U);
  EXPECT_EQ(delegateCalls[0].host, &host);
  EXPECT_EQ(delegateCalls[0].domain, 7U);
  EXPECT_EQ(delegateCalls[0].names, "Preload/Velora.Preload/Init");
  EXPECT_EQ(managedCalls, 1);
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 [quillon-tv-plugin] plugin_set_coreclr_info",
                          "3 handleDebugPipe called!!", "4 [quillon-tv-plugin] plugin_preload",
                          "4 [quillon-tv-plugin] process in Host. preload C# methods"));
}

TEST_F(Exports, AFailedDelegateIsLoggedWithItsStatus) {
  delegateStatus = static_cast<int>(0x80070002);
  plugin_set_coreclr_info(nullptr, 1, createDelegate);
  plugin_preload();
  EXPECT_EQ(managedCalls, 0);
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Create delegate for Launch prepared function is fail (0x80070002)"));
}

TEST_F(Exports, APositiveStatusWithoutAFunctionCallsNothing) {
  delegateStatus = 1;
  delegateFunction = nullptr;
  plugin_set_coreclr_info(nullptr, 1, createDelegate);
  plugin_preload();
  EXPECT_THAT(platform().messages(6), IsEmpty());
}

TEST_F(Exports, PreloadWithoutARuntimeIsAFailedDelegate) {
  plugin_preload();
  EXPECT_THAT(strategy_.calls, ElementsAre("Preload()"));
  EXPECT_THAT(platform().messages(6),
              ElementsAre("Create delegate for Launch prepared function is fail (0x80004003)"));
}

TEST_F(Exports, SetAppInfoForwardsBothTexts) {
  plugin_set_app_info("org.example", "/usr/apps/x");
  EXPECT_THAT(strategy_.calls, ElementsAre("SetAppInfo(org.example, /usr/apps/x)"));
  EXPECT_THAT(platform().lines(), ElementsAre("4 [quillon-tv-plugin] plugin_set_app_info",
                                              "3 IsAllowedToActivateGCTracer : false"));
  expectScope("void plugin_set_app_info(const char*, const char*)");
  EXPECT_EQ(is_coba_direct_call_mode(), 0);
}

TEST_F(Exports, DirectCallModeIsForEver) {
  plugin_set_app_info("com.korvane.tv.csfs.more", "/usr/apps/x");
  EXPECT_THAT(platform().lines(),
              ElementsAre("3 ##### It's CSFS #####", "4 [quillon-tv-plugin] plugin_set_app_info",
                          "3 IsAllowedToActivateGCTracer : false"));
  plugin_set_app_info("org.example", "/usr/apps/x");
  platform().reset();
  EXPECT_EQ(is_coba_direct_call_mode(), 1);
  EXPECT_THAT(platform().lines(), IsEmpty());
  expectScope("int is_coba_direct_call_mode()");
}

TEST_F(Exports, DirectCallModeIsSetByTheIdAnywhereInTheApplicationsId) {
  for (const char* id : {"com.korvane.tv.csfs", "com.korvane.tv.csfs.more",
                         "org.com.korvane.tv.csfs", "xcom.korvane.tv.csfsx"}) {
    directCallMode = 0;
    plugin_set_app_info(id, "/usr/apps/x");
    EXPECT_EQ(is_coba_direct_call_mode(), 1) << id;
  }
  for (const char* id : {"com.korvane.tv.csf", "com.korvane.tv.CSFS", "com.korvane-tv.csfs", ""}) {
    directCallMode = 0;
    plugin_set_app_info(id, "/usr/apps/x");
    EXPECT_EQ(is_coba_direct_call_mode(), 0) << id;
  }
}

// Runs in a child process, because a capture cannot be stopped.
int claimLogControlTwice() {
  const bool first = plugin_has_log_control();
  const bool second = plugin_has_log_control();
  const std::vector<std::string> milestones(2, "[quillon-tv-plugin] plugin_has_log_control");
  return first && second && platform().markers == milestones ? 0 : 1;
}

int startsOfCapture() {
  const auto lines = platform().lines();
  return static_cast<int>(std::count(lines.begin(), lines.end(), "3 Run TV Logging Thread"));
}

// Returns how often the capture was started, or 100 if anything else is wrong.
int startsWhenClaimedTwice(const std::vector<std::string>& errors) {
  const int claimed = claimLogControlTwice();
  return claimed == 0 && platform().messages(6) == errors ? startsOfCapture() : 100;
}

TEST_F(Exports, LogControlIsClaimedAndStartsCaptureOnce) {
  EXPECT_EXIT(_exit(startsWhenClaimedTwice({})), ::testing::ExitedWithCode(1), "");
}

TEST_F(Exports, LogControlIsClaimedWhenCaptureCannotStartAndIsNotTriedAgain) {
  const std::vector<std::string> errors = {"fail to create pipe for stdout logging",
                                           "Failed to initnialize LogManager",
                                           "Failed to create logging thread"};
  const rlimit none{0, 0};
  EXPECT_EXIT(_exit(setrlimit(RLIMIT_NOFILE, &none) + startsWhenClaimedTwice(errors)),
              ::testing::ExitedWithCode(1), "");
}

TEST_F(Exports, BeforeExecuteDropsCapabilities) {
  plugin_before_execute();
  EXPECT_EQ(capabilities().sets, 1);
  EXPECT_EQ(capabilities().frees, 1);
  EXPECT_THAT(platform().lines(), ElementsAre("4 [quillon-tv-plugin] plugin_before_execute"));
}

TEST_F(Exports, APreloadedProcessKeepsItsCapabilities) {
  plugin_preload();
  plugin_before_execute();
  EXPECT_EQ(capabilities().sets, 0);
}

TEST_F(Exports, CapabilityFailuresAreLoggedAndPassed) {
  capabilities().failSet = true;
  plugin_before_execute();
  EXPECT_THAT(platform().messages(6), ElementsAre("fail to cap_set_proc()"));
  EXPECT_EQ(capabilities().frees, 1);
}

TEST_F(Exports, AMissingCapabilitySetIsAppliedAllTheSame) {
  capabilities().failInit = true;
  plugin_before_execute();
  EXPECT_TRUE(capabilities().setWasNull);
  EXPECT_THAT(platform().messages(6), ElementsAre("fail to cap_init()", "fail to cap_set_proc()"));
  EXPECT_EQ(capabilities().frees, 1);
}

TEST_F(Exports, FinalizeEndsTheLaunch) {
  strategy_.onCall = [] { EXPECT_FALSE(checkOnTerminate); };
  stderrFP = fopen("/dev/null", "w");
  const int descriptor = fileno(stderrFP);
  plugin_finalize();
  EXPECT_THAT(strategy_.calls, ElementsAre("Finalize()"));
  EXPECT_EQ(stderrFP, nullptr);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
  EXPECT_TRUE(checkOnTerminate);
  EXPECT_THAT(platform().lines(), ElementsAre("4 [quillon-tv-plugin] plugin_finalize"));
  expectScope("void plugin_finalize()");
}

TEST_F(Exports, FinalizeWithoutMemoryEndsTheLaunchToo) {
  strategy_.onCall = [] { throw std::bad_alloc(); };
  stderrFP = fopen("/dev/null", "w");
  plugin_finalize();
  EXPECT_EQ(stderrFP, nullptr);
  EXPECT_TRUE(checkOnTerminate);
  EXPECT_THAT(platform().messages(6), ElementsAre("Out of memory"));
}

TEST_F(Exports, ATypeThatSelectsNothingKeepsTheEarlierChain) {
  setenv("DOTNET_SYSTEM_GLOBALIZATION_INVARIANT", "1", 1);
  for (const char* type : {"", "unknown", "INHOUSE", "in-house", "in_house"}) {
    platform().reset();
    strategy_.calls.clear();
    plugin_initialize(type);
    EXPECT_EQ(tvPluginMgr, &context_);
    EXPECT_THAT(strategy_.calls, ElementsAre("Initialize()")) << type;
    EXPECT_THAT(platform().lines(), ElementsAre("3 Use /usr/share/cert/zqca.pem",
                                                "4 [quillon-tv-plugin] plugin_initialize",
                                                std::string("4 ##### AppType : ") + type,
                                                std::string("6 Wrong parameter : ") + type,
                                                "3 DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  1",
                                                "4 DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  1"));
  }
  expectScope("void plugin_initialize(const char*)");
}

TEST_F(Exports, InitializeSetsTheEnvironmentForEveryType) {
  setenv("DOTNET_APP", "other", 1);
  setenv("DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER", "1", 1);
  plugin_initialize("unknown");
  EXPECT_STREQ(getenv("DOTNET_APP"), "1");
  EXPECT_STREQ(getenv("DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER"), "0");
}

TEST_F(Exports, BeforeInitializeTheyDoNothingHarmful) {
  tvPluginMgr = nullptr;
  plugin_initialize("unknown");
  plugin_initialize(nullptr);
  EXPECT_EQ(tvPluginMgr, nullptr);
  EXPECT_EQ(plugin_get_tpa(), nullptr);
  EXPECT_STREQ(plugin_get_dll_path(), "");
  EXPECT_STREQ(plugin_get_extra_dll_path(), "");
  plugin_preload();
  plugin_set_app_info("id", "path");
  plugin_set_app_info(nullptr, nullptr);
  plugin_finalize();
  EXPECT_TRUE(checkOnTerminate);
  EXPECT_THAT(strategy_.calls, IsEmpty());
}

}  // namespace
}  // namespace quillon::test
