// Tests of the strategy chain for each application type, and of the exported functions with it.
#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <vector>

#include "plugin/include-internal/dpc-path-manager.h"
#include "plugin/src/plugin-dotnet-aot/plugin_dotnet_aot.h"
#include "plugin/src/plugin-dotnet-inhouse-apitest/plugin_dotnet_inhouse_apitest.h"
#include "plugin/src/plugin-dotnet-inhouse/plugin_dotnet_inhouse.h"
#include "plugin/src/plugin-dotnet/plugin_dotnet.h"
#include "plugin/src/plugin-util/coba_directories.h"
#include "plugin/src/quillon-tv-plugin/process_state.h"
#include "quillon_tv_plugin.h"
#include "tests/system/strategies/device_test.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

// plugin_initialize never frees the previous chain. Keeping a pointer to it prevents a report of
// the leak sanitizer.
void initialize(const char* type) {
  static auto* abandoned = new std::vector<PluginContext*>;  // never freed
  plugin_initialize(type);
  abandoned->push_back(tvPluginMgr);
}

class Modes : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    tvPluginMgr = nullptr;
    coBASharedDirsInApp.clear();
    unsetenv("DOTNET_SYSTEM_GLOBALIZATION_INVARIANT");
  }

  // Returns the milestone of the mode and the constructors of the decorators and strategies, in
  // order.
  static std::vector<std::string> made(const char* type) {
    platform().reset();
    initialize(type);
    std::vector<std::string> result = {platform().markers[1]};
    for (const std::string& line : platform().trace) {
      for (const char* name :
           {" PluginDotnetInhouseApitest::PluginDotnetInhouseApitest(",
            " PluginDotnetInhouse::PluginDotnetInhouse(", " PluginDotnet::PluginDotnet(",
            " PluginDotnetAot::PluginDotnetAot(",
            " DpcPathManagerDecorate::DpcPathManagerDecorate(",
            " ApitestDecorate::ApitestDecorate(", " AotRemoverDecorate::AotRemoverDecorate("}) {
        const std::string text(name);
        if (line.find(text) != std::string::npos) {
          result.push_back(text.substr(1, text.find(':') - 1));
        }
      }
    }
    return result;
  }
};

TEST_F(Modes, ApitestHasTheLongestChain) {
  EXPECT_THAT(made("inhouseapitest"),
              ElementsAre("[quillon-tv-plugin] Inhouse Api Test App", "PluginDotnetInhouseApitest",
                          "DpcPathManagerDecorate", "ApitestDecorate", "AotRemoverDecorate"));
  EXPECT_NE(dynamic_cast<AotRemoverDecorate*>(tvPluginMgr->strategy), nullptr);
  EXPECT_THAT(linesThatBegin("3 Decorator"),
              ElementsAre("3 Decorator", "3 Decorator", "3 Decorator", "3 Decorator::Initialize",
                          "3 Decorator::Initialize", "3 Decorator::Initialize"));
}

std::map<std::string, std::string> environment() {
  std::map<std::string, std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    result[text.substr(0, text.find('='))] = text.substr(text.find('=') + 1);
  }
  return result;
}

// The signals that have a handler, as a mask of hexadecimal digits (proc(5), SigCgt).
unsigned long long caughtSignals() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigCgt:")) {
      return std::stoull(line.substr(8), nullptr, 16);
    }
  }
  return 0;
}

unsigned long long bitOf(int signal) { return 1ULL << (signal - 1); }

constexpr int kHandled[] = {SIGTERM, SIGABRT, SIGSEGV, SIGTRAP};

TEST_F(Modes, InitializeChangesThreeVariablesAndFourHandlersOfTheProcess) {
  for (const char* type : {"inhouseapitest", "inhouse", "dotnet", "normal"}) {
    SCOPED_TRACE(type);
    for (const int handled : kHandled) {
      signal(handled, SIG_DFL);
    }
    for (const char* name :
         {"DOTNET_APP", "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER", "SSL_CERT_FILE"}) {
      unsetenv(name);
    }
    std::map<std::string, std::string> expected = environment();
    unsigned long long caught = caughtSignals();
    initialize(type);
    expected["DOTNET_APP"] = "1";
    expected["DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER"] = "0";
    expected["SSL_CERT_FILE"] = "/usr/share/cert/zqca.pem";
    EXPECT_EQ(environment(), expected);
    for (const int handled : kHandled) {
      EXPECT_EQ(caught & bitOf(handled), 0U);
      caught |= bitOf(handled);
    }
    EXPECT_EQ(caughtSignals(), caught);
  }
}

TEST_F(Modes, AnUnrecognisedTypeInstallsNoHandlersAndKeepsTheCaches) {
  makeFile("/opt/usr/home/owner/share/dotnet/TPA.txt", "[START][END]");
  fs::remove("/opt/etc/dotnet_flag.ini");
  for (const int handled : kHandled) {
    signal(handled, SIG_DFL);
  }
  const unsigned long long caught = caughtSignals();
  plugin_initialize("unknown");
  EXPECT_EQ(caughtSignals(), caught);
  EXPECT_TRUE(fs::exists("/opt/usr/home/owner/share/dotnet/TPA.txt"));
  initialize("dotnet");
  EXPECT_FALSE(fs::exists("/opt/usr/home/owner/share/dotnet/TPA.txt"));
}

TEST_F(Modes, InhouseHasItsDpcDecorator) {
  EXPECT_THAT(made("inhouse"), ElementsAre("[quillon-tv-plugin] Inhouse App", "PluginDotnetInhouse",
                                           "DpcPathManagerDecorate"));
  EXPECT_NE(dynamic_cast<DpcPathManagerDecorate*>(tvPluginMgr->strategy), nullptr);
}

TEST_F(Modes, DotnetHasNoDecorators) {
  EXPECT_THAT(made("dotnet"), ElementsAre("[quillon-tv-plugin] DotNET App", "PluginDotnet"));
  EXPECT_NE(dynamic_cast<PluginDotnet*>(tvPluginMgr->strategy), nullptr);
}

TEST_F(Modes, NormalHasItsDpcDecorator) {
  EXPECT_THAT(made("normal"), ElementsAre("[quillon-tv-plugin] Normal", "PluginDotnetAot",
                                          "DpcPathManagerDecorate"));
  EXPECT_NE(dynamic_cast<DpcPathManagerDecorate*>(tvPluginMgr->strategy), nullptr);
}

TEST_F(Modes, AWordCountsAnywhereAndTheFirstInTheTableWins) {
  const std::map<std::string, std::string> selected = {
      {"xinhouseapitesty", "[quillon-tv-plugin] Inhouse Api Test App"},
      {"inhouse-apitest", "[quillon-tv-plugin] Inhouse App"},
      {"normal-inhouse", "[quillon-tv-plugin] Inhouse App"},
      {"normaldotnet", "[quillon-tv-plugin] DotNET App"},
      {"dotnet.normal", "[quillon-tv-plugin] DotNET App"},
      {"abnormal", "[quillon-tv-plugin] Normal"},
  };
  for (const auto& [type, milestone] : selected) {
    EXPECT_EQ(made(type.c_str()).front(), milestone) << type;
  }
}

TEST_F(Modes, InitializeKeepsItsOrder) {
  initialize("normal");
  EXPECT_THAT(platform().lines(),
              ElementsAre("3 Use /usr/share/cert/zqca.pem",
                          "4 [quillon-tv-plugin] plugin_initialize", "4 ##### AppType : normal",
                          "4 [quillon-tv-plugin] Normal", "3 Register signal handler",
                          "4 [quillon-tv-plugin] RO and RW same", "3 Decorator",
                          "3 Decorator::Initialize", "4 ### PluginDotnetAot Initialize called ###",
                          "3 DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  (null)",
                          "4 DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  (null)"));
}

TEST_F(Modes, AnotherInitializeAbandonsTheEarlierContext) {
  initialize("normal");
  const PluginContext* first = tvPluginMgr;
  initialize("inhouse");
  EXPECT_NE(tvPluginMgr, first);
  PluginContext* second = tvPluginMgr;
  initialize("unknown");
  EXPECT_EQ(tvPluginMgr, second);
}

TEST_F(Modes, DotnetLeavesItsListsToTheLauncher) {
  initialize("dotnet");
  EXPECT_EQ(plugin_get_tpa(), nullptr);
  ASSERT_NE(plugin_get_extra_dll_path(), nullptr);
  EXPECT_STREQ(plugin_get_extra_dll_path(), "");
  EXPECT_STREQ(plugin_get_dll_path(), "/usr/share/dotnet.velora/lib");
}

TEST_F(Modes, NativeSearchPathIsEmptyInEveryMode) {
  for (const char* type : {"inhouseapitest", "inhouse", "dotnet", "normal"}) {
    initialize(type);
    EXPECT_STREQ(plugin_get_native_dll_searching_path(), "");
  }
}

// The package of the application, with its own files.
void installApplication() {
  platform().packages = {{"p",
                          "/opt/usr/apps/p",
                          {"http://velora.example/privilege/internal/default/platform"},
                          {{"org.example.app", "", false, {}}}}};
  platform().processes[getpid()] = "p";
}

TEST_F(Modes, ApitestPutsTheApplicationsTvApiFirstAndNamesNoNativeImage) {
  makeFile("/usr/share/dotnet.velora/netcoreapp/System.ni.dll");
  makeFile("/usr/share/dotnet.velora/framework/Velora.TV.Screen.ni.dll");
  makeFile("/opt/usr/apps/p/bin/Velora.TV.Screen.dll");
  makeFile("/opt/usr/apps/p/lib/Velora.TV.Sound.ni.dll");
  makeFile("/opt/usr/apps/p/bin/App.dll");
  installApplication();
  initialize("inhouseapitest");
  EXPECT_STREQ(plugin_get_tpa(),
               "/opt/usr/apps/p/lib/Velora.TV.Sound.dll:/opt/usr/apps/p/bin/Velora.TV.Screen.dll:"
               "/usr/share/dotnet.velora/netcoreapp/System.dll:"
               "/usr/share/dotnet.velora/framework/Velora.TV.Screen.dll");
}

TEST_F(Modes, InhouseKeepsNativeImages) {
  makeFile("/usr/share/dotnet.velora/netcoreapp/System.ni.dll");
  initialize("inhouse");
  EXPECT_STREQ(plugin_get_tpa(), "/usr/share/dotnet.velora/netcoreapp/System.ni.dll");
}

}  // namespace
}  // namespace quillon::test
