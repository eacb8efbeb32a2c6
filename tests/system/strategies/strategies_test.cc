// Tests of the strategies that search for their assemblies at every launch.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <type_traits>

#include "plugin/src/plugin-dotnet-aot/plugin_dotnet_aot.h"
#include "plugin/src/plugin-dotnet-inhouse-apitest/plugin_dotnet_inhouse_apitest.h"
#include "plugin/src/plugin-dotnet-inhouse/plugin_dotnet_inhouse.h"
#include "plugin/src/plugin-util/coba_directories.h"
#include "tests/system/strategies/device_test.h"

namespace {

// Called by each sync(2), which then does nothing. If null, sync(2) is forwarded.
std::function<void()> atSync;

}  // namespace

// Replaces the function of the C library.
extern "C" void sync() noexcept {
  if (atSync) {
    atSync();
  } else {
    reinterpret_cast<decltype(&sync)>(dlsym(RTLD_NEXT, "sync"))();
  }
}

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

constexpr char kRoot[] = "/usr/share/dotnet.velora/";
constexpr char kTpaCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
constexpr char kDllPath[] = "/usr/share/dotnet.velora/lib:/usr/share/dotnet.velora/tvappapi";

static_assert(sizeof(PluginDotnetInhouse) == sizeof(void*));
static_assert(sizeof(PluginDotnetInhouseApitest) == sizeof(void*));

struct Kind {
  const char* name;
  std::function<std::unique_ptr<PluginStrategy>()> make;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

template <typename Strategy>
Kind kind(const char* name) {
  return {name, [] { return std::make_unique<Strategy>(); }};
}

class StrategyTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    coBASharedDirsInApp.clear();
    for (const char* assembly :
         {"netcoreapp/System.dll", "framework/Velora.dll", "framework/ref/Reference.dll",
          "lib/Library.dll", "tvappapi/Tv.dll"}) {
      makeFile(std::string(kRoot) + assembly);
    }
    makeFile("/opt/usr/home/owner/share/.reflection-eliminator/Eliminated.dll");
  }

  static std::vector<std::string> spans() {
    std::vector<std::string> names;
    for (const std::string& line : platform().trace) {
      if (line.find(") ") != std::string::npos) {
        names.push_back(line.substr(line.find(") ") + 2));
      }
    }
    return names;
  }
};

class ScanningStrategy : public StrategyTest, public ::testing::WithParamInterface<Kind> {
 protected:
  std::string scope(const std::string& result, const std::string& operation) const {
    return "virtual " + result + " " + GetParam().name + "::" + operation;
  }
};

INSTANTIATE_TEST_SUITE_P(
    Modes, ScanningStrategy,
    ::testing::Values(kind<PluginDotnetInhouseApitest>("PluginDotnetInhouseApitest"),
                      kind<PluginDotnetAot>("PluginDotnetAot")),
    [](const auto& strategy) { return std::string(strategy.param.name); });

TEST_P(ScanningStrategy, ConstructionOnlyChecksTheCaches) {
  fs::remove("/opt/etc/dotnet_flag.ini");
  makeFile(kTpaCache, "[START]/x[END]");
  GetParam().make();
  EXPECT_FALSE(fs::exists(kTpaCache));
  const std::string name = GetParam().name;
  EXPECT_EQ(spans().front(), name + "::" + name + "()");
  EXPECT_THAT(spans(), Contains("void CheckDotnetFlagAndRemoveCacheFiles()").Times(1));
}

TEST_P(ScanningStrategy, SearchesAtEveryCallAndSavesNothing) {
  const auto strategy = GetParam().make();
  platform().reset();
  const std::string expected =
      "/usr/share/dotnet.velora/netcoreapp/System.dll:"
      "/opt/usr/home/owner/share/.reflection-eliminator/Eliminated.dll:"
      "/usr/share/dotnet.velora/framework/Velora.dll:"
      "/usr/share/dotnet.velora/framework/ref/Reference.dll:"
      "/usr/share/dotnet.velora/lib/Library.dll:/usr/share/dotnet.velora/tvappapi/Tv.dll";
  EXPECT_EQ(strategy->GetTPA(), expected);
  EXPECT_THAT(
      platform().markers,
      ElementsAre("[quillon-tv-plugin] GetTPA Start", "[quillon-tv-plugin] Get TPA by searching.",
                  "[quillon-tv-plugin] GetCoBASharedDirsInApp Start",
                  "[quillon-tv-plugin] Get CoBA shared directories by searching.",
                  "[quillon-tv-plugin] GetCoBASharedDirsInApp Finish",
                  "[quillon-tv-plugin] GetTPA Finish"));
  EXPECT_EQ(spans().front(), scope("std::string", "GetTPA()"));
  EXPECT_THAT(spans(),
              Contains(std::string("std::string ") + GetParam().name + "::GetTPAAndSaveAsCache()"));
  EXPECT_FALSE(fs::exists(kTpaCache));

  makeFile("/usr/share/dotnet.velora/lib/Second.dll");
  EXPECT_THAT(strategy->GetTPA(), ::testing::HasSubstr("/usr/share/dotnet.velora/lib/Second.dll"));
}

TEST_P(ScanningStrategy, DoesNotReadTheCachedList) {
  makeFile(kTpaCache, "[START]/cached/A.dll[END]");
  const auto strategy = GetParam().make();
  EXPECT_THAT(strategy->GetTPA(), StartsWith("/usr/share/dotnet.velora/netcoreapp/System.dll:"));
}

TEST_P(ScanningStrategy, DllPathIsTheTwoPlatformDirectoriesIfThereIsNoMore) {
  const auto strategy = GetParam().make();
  platform().reset();
  EXPECT_EQ(strategy->GetDllPath(), kDllPath);
  EXPECT_EQ(platform().lines().front(), "4 ### plugin get dll path called ###");
  EXPECT_EQ(platform().lines().back(), std::string("3 GetDllPath: ") + kDllPath);
  EXPECT_EQ(spans().front(), scope("std::string", "GetDllPath()"));
}

TEST_P(ScanningStrategy, DllPathEndsWithTheSharedComponents) {
  makeFile("/opt/usr/home/owner/share/dotnet/CoBA.txt",
           "[START]:/a/shared/res/:/b/shared/res/[END]");
  EXPECT_EQ(GetParam().make()->GetDllPath(),
            std::string(kDllPath) + ":/a/shared/res/:/b/shared/res/");
}

TEST_P(ScanningStrategy, AddsNoExtraDirectoriesAndEndsSilently) {
  const auto strategy = GetParam().make();
  platform().reset();
  EXPECT_EQ(strategy->GetExtraDllPath(), "");
  strategy->Finalize();
  EXPECT_THAT(platform().lines(), IsEmpty());
  EXPECT_THAT(platform().calls, IsEmpty());
  EXPECT_THAT(spans(),
              ElementsAre(scope("std::string", "GetExtraDllPath()"), scope("void", "Finalize()")));
}

TEST_P(ScanningStrategy, WithoutThePlatformPrivilegeTheLaunchIsRefused) {
  platform().echo = true;
  EXPECT_EXIT(GetParam().make()->SetAppInfo("org.example.app", "/usr/bin/env"),
              ::testing::ExitedWithCode(0), "### SetAppInfo ###");
}

TEST_P(ScanningStrategy, TakesTheIdentityAfterThePrivilegeWasSeen) {
  platform().packages = {{"p",
                          "/opt/usr/apps/p",
                          {"http://velora.example/privilege/internal/default/platform"},
                          {{"org.example.app", "", false, {}}}}};
  platform().processes[getpid()] = "p";
  const auto strategy = GetParam().make();
  platform().reset();
  platform().packages = {{"p",
                          "/opt/usr/apps/p",
                          {"http://velora.example/privilege/internal/default/platform"},
                          {{"org.example.app", "", false, {}}}}};
  platform().processes[getpid()] = "p";
  strategy->SetAppInfo("org.example.app", "/usr/bin/env");
  EXPECT_EQ(platform().lines().front(), "4 ### SetAppInfo ###");
  const std::vector<std::string> all = spans();
  EXPECT_EQ(all.front(), scope("void", "SetAppInfo(const string&, const string&)"));
  const auto at = [&](const std::string& part) {
    return std::find_if(
               all.begin(), all.end(),
               [&](const std::string& span) { return span.find(part) != std::string::npos; }) -
           all.begin();
  };
  EXPECT_LT(at("checkAppHasPlatformPrivilege"), at(" _SetAppInfo("));
  EXPECT_LT(at(" _SetAppInfo("), static_cast<std::ptrdiff_t>(all.size()));
}

class ApitestStrategy : public StrategyTest {
 protected:
  PluginDotnetInhouseApitest strategy_;
};

TEST_F(ApitestStrategy, InitializeAndPreloadOnlyTrace) {
  platform().reset();
  strategy_.Initialize();
  strategy_.Preload();
  EXPECT_THAT(platform().lines(), IsEmpty());
  EXPECT_THAT(spans(), ElementsAre("virtual void PluginDotnetInhouseApitest::Initialize()",
                                   "virtual void PluginDotnetInhouseApitest::Preload()"));
}

TEST_F(ApitestStrategy, TakesNoNoticeOfTheConfiguredApiDirectoryOrThePlatformsDpc) {
  platform().config["db/dotnet/velora_api_path"] = "/opt/usr/api";
  makeFile("/opt/usr/api/Configured.dll");
  makeFile(std::string(kRoot) + "d.pc/one/One.dll");
  EXPECT_THAT(strategy_.GetTPA(), Not(::testing::HasSubstr("Configured.dll")));
  EXPECT_EQ(strategy_.GetDllPath(), kDllPath);
}

using InhouseStrategy = StrategyTest;

TEST_F(InhouseStrategy, AddsNoExtraDirectoriesAndSaysNothing) {
  PluginDotnetInhouse strategy;
  platform().reset();
  EXPECT_EQ(strategy.GetExtraDllPath(), "");
  EXPECT_THAT(platform().lines(), IsEmpty());
  EXPECT_THAT(platform().calls, IsEmpty());
  EXPECT_THAT(spans(), ElementsAre("virtual std::string PluginDotnetInhouse::GetExtraDllPath()"));
}

TEST_F(InhouseStrategy, ASyncFollowsTheRemovalOfBothLists) {
  const std::string coba = "/opt/usr/home/owner/share/dotnet/CoBA.txt";
  makeFile(kTpaCache, "[START]/x[END]");
  makeFile(coba, "[START][END]");
  makeFile("/opt/etc/dotnet_flag.ini", "other");
  std::vector<bool> left;
  atSync = [&] { left = {fs::exists(kTpaCache), fs::exists(coba)}; };
  PluginDotnetInhouse strategy;
  atSync = nullptr;
  EXPECT_THAT(left, ElementsAre(false, false));
  EXPECT_THAT(platform().markers, ElementsAre("[quillon-tv-plugin] RO and RW diff"));
}

class AotStrategy : public StrategyTest {
 protected:
  void SetUp() override {
    StrategyTest::SetUp();
    platform().reset();
  }
  PluginDotnetAot strategy_;
};

TEST_F(AotStrategy, InitializeAndPreloadSayTheirLines) {
  strategy_.Initialize();
  strategy_.Preload();
  EXPECT_THAT(platform().lines(), ElementsAre("4 ### PluginDotnetAot Initialize called ###",
                                              "4 ### plugin_preload called ###",
                                              "4 ### preloadSharedLibraries called ###"));
  EXPECT_EQ(platform().log[1].file(), "plugin-dotnet-aot.cc");
  EXPECT_EQ(platform().log[1].function(), "Initialize");
}

TEST_F(AotStrategy, AConfiguredApiDirectoryTakesThePlaceOfTheFramework) {
  platform().config["db/dotnet/velora_api_path"] = "/opt/usr/api";
  makeFile("/opt/usr/api/Configured.dll");
  makeFile("/opt/usr/api/ref/ConfiguredReference.dll");
  EXPECT_EQ(strategy_.GetTPA(),
            "/usr/share/dotnet.velora/netcoreapp/System.dll:"
            "/opt/usr/home/owner/share/.reflection-eliminator/Eliminated.dll:"
            "/opt/usr/api/Configured.dll:/opt/usr/api/ref/ConfiguredReference.dll:"
            "/usr/share/dotnet.velora/lib/Library.dll:/usr/share/dotnet.velora/tvappapi/Tv.dll");
  EXPECT_THAT(platform().messages(3),
              Contains("Device API Directory is set by vconf : /opt/usr/api"));
  EXPECT_THAT(platform().calls, Contains("vconf_get_str(db/dotnet/velora_api_path)"));
}

TEST_F(AotStrategy, AConfiguredDirectoryIsNotChecked) {
  makeFile("/opt/usr/api/Configured.dll");
  fs::create_symlink("/opt/usr/api", "/opt/usr/link");
  platform().config["db/dotnet/velora_api_path"] = "/opt/usr/./link/../link/";
  EXPECT_THAT(strategy_.GetTPA(), ::testing::HasSubstr(":/opt/usr/./link/../link/"));
}

TEST_F(AotStrategy, AnEmptyConfiguredDirectoryIsUsedToo) {
  platform().config["db/dotnet/velora_api_path"] = "";
  EXPECT_EQ(strategy_.GetTPA(),
            "/usr/share/dotnet.velora/netcoreapp/System.dll:"
            "/opt/usr/home/owner/share/.reflection-eliminator/Eliminated.dll:"
            "/usr/share/dotnet.velora/lib/Library.dll:/usr/share/dotnet.velora/tvappapi/Tv.dll");
  EXPECT_THAT(platform().messages(3), Contains("Device API Directory is set by vconf : "));
}

TEST_F(AotStrategy, WithoutTheKeyTheFrameworkIsResolved) {
  fs::rename(std::string(kRoot) + "framework", std::string(kRoot) + "moved");
  fs::create_symlink("moved", std::string(kRoot) + "framework");
  const std::string tpa = strategy_.GetTPA();
  EXPECT_THAT(tpa, ::testing::HasSubstr(":/usr/share/dotnet.velora/moved/Velora.dll:"));
  EXPECT_THAT(tpa, ::testing::HasSubstr(":/usr/share/dotnet.velora/moved/ref/Reference.dll:"));
  EXPECT_THAT(platform().messages(3), Not(Contains(StartsWith("Device API Directory"))));
}

// Returns the folders in the order of readdir(3).
std::string dpcFolders() {
  std::string list;
  for (const auto& entry : fs::directory_iterator(std::string(kRoot) + "d.pc")) {
    if (entry.is_directory() && !entry.is_symlink()) {
      list += ":" + entry.path().string();
    }
  }
  return list;
}

TEST_F(AotStrategy, DllPathListsThePlatformsDpcDirectoriesInScanOrder) {
  for (const char* name : {"c", "a", "b", "zz"}) {
    fs::create_directories(std::string(kRoot) + "d.pc/" + name);
  }
  makeFile(std::string(kRoot) + "d.pc/file.dll");
  fs::create_directory_symlink("/opt/usr", std::string(kRoot) + "d.pc/link");
  makeFile("/opt/usr/home/owner/share/dotnet/CoBA.txt", "[START]:/a/shared/res/[END]");
  EXPECT_EQ(strategy_.GetDllPath(),
            std::string(kRoot) + "lib" + dpcFolders() + ":" + kRoot + "tvappapi:/a/shared/res/");
}

TEST_F(AotStrategy, ASecondDllPathIsTheSame) {
  fs::create_directories(std::string(kRoot) + "d.pc/one");
  const std::string first = strategy_.GetDllPath();
  EXPECT_EQ(first, std::string(kRoot) + "lib:" + kRoot + "d.pc/one:" + kRoot + "tvappapi");
  EXPECT_EQ(strategy_.GetDllPath(), first);
}

TEST_F(AotStrategy, AnEmptyDpcDirectoryAddsNothing) {
  fs::create_directories(std::string(kRoot) + "d.pc");
  EXPECT_EQ(strategy_.GetDllPath(), kDllPath);
}

TEST_F(AotStrategy, AssembliesOfTheDpcDirectoriesAreListed) {
  makeFile(std::string(kRoot) + "d.pc/one/One.dll");
  EXPECT_THAT(strategy_.GetTPA(),
              ::testing::HasSubstr(":/usr/share/dotnet.velora/d.pc/one/One.dll:"));
}

}  // namespace
}  // namespace quillon::test
