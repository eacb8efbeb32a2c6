// The list of platform assemblies of an "inhouse" application, and its cache file.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr char kCache[] = "/opt/usr/home/owner/share/dotnet/TPA.txt";
constexpr char kSearching[] = "4 [quillon-tv-plugin] Get TPA by searching.";
constexpr char kCached[] = "4 [quillon-tv-plugin] Get TPA by cache file";

class TpaCache : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    put("/usr/share/dotnet.velora/netcoreapp/System.dll");
  }
  DriverRun launch() { return run({"initialize=inhouse", "get_tpa"}); }
  static constexpr char kTpa[] = "/usr/share/dotnet.velora/netcoreapp/System.dll";
};

TEST_F(TpaCache, IsBuiltIfItIsMissing) {
  const DriverRun launched = launch();
  EXPECT_EQ(launched.status, 0) << launched.output;
  EXPECT_EQ(launched.result("get_tpa"), kTpa);
  EXPECT_EQ(read(kCache), std::string("[START]") + kTpa + "[END]");
  EXPECT_FALSE(exists("/opt/usr/home/owner/share/dotnet/temp_TPA.txt"));
}

TEST_F(TpaCache, LogsItsStepsInOrder) {
  keepCaches();
  const DriverRun launched = launch();
  std::vector<std::string> beginning =
      launched.linesFrom("4 [quillon-tv-plugin] plugin_initialize");
  beginning.resize(std::min<std::size_t>(beginning.size(), 8));
  EXPECT_THAT(
      beginning,
      ElementsAre("4 [quillon-tv-plugin] plugin_initialize", "4 ##### AppType : inhouse",
                  "4 [quillon-tv-plugin] Inhouse App", "3 Register signal handler",
                  "4 [quillon-tv-plugin] RO and RW same", "3 Decorator", "3 Decorator::Initialize",
                  "4 ### PluginDotnetInhouse Initialize called ###"));
  constexpr char kNoLink[] = "3 File does not exist. No need to check symbolic links. ###";
  EXPECT_THAT(
      launched.linesFrom("4 [quillon-tv-plugin] plugin_get_tpa"),
      ElementsAre("4 [quillon-tv-plugin] plugin_get_tpa", "3 Decorator::GetTPA",
                  "4 [quillon-tv-plugin] GetTPA Start", kSearching,
                  "4 ### plugin get dll path called ###",
                  "4 [quillon-tv-plugin] GetCoBASharedDirsInApp Start",
                  "4 [quillon-tv-plugin] Get CoBA shared directories by searching.", "3 ", kNoLink,
                  kNoLink, "3 Save File : /opt/usr/home/owner/share/dotnet/CoBA.txt", "3 Saved",
                  "4 [quillon-tv-plugin] GetCoBASharedDirsInApp Finish",
                  "3 GetDllPath: /usr/share/dotnet.velora/lib:/usr/share/dotnet.velora/tvappapi",
                  kNoLink, kNoLink, std::string("3 Save File : ") + kCache, "3 Saved",
                  "4 [quillon-tv-plugin] GetTPA Finish", std::string("3 TPA List : ") + kTpa));
}

TEST_F(TpaCache, TakesDirectoriesInTheOrderOfTheDesign) {
  const std::vector<std::string> directories = {
      "/usr/share/dotnet.velora/netcoreapp", "/opt/usr/home/owner/share/.reflection-eliminator",
      "/usr/share/dotnet.velora/framework",  "/usr/share/dotnet.velora/framework/ref",
      "/usr/share/dotnet.velora/lib",        "/usr/share/dotnet.velora/tvappapi",
      "/opt/usr/apps/offering/shared/res",
  };
  installApplication("offering", R"("/velora/metadata/support-fs-external-component" = "")");
  run({});  // installs the package first, since the installer creates the root folder
  std::string expected = kTpa;
  for (std::size_t i = 0; i < directories.size(); ++i) {
    const std::string own = "/Own" + std::to_string(i) + ".dll";
    put(directories[i] + own);
    if (i > 0) {
      expected += ":" + directories[i] + own;
      put(directories[i] + "/System.dll");  // the file of the first directory wins
    }
  }
  const std::string tpa = launch().result("get_tpa");
  // Two files of the first directory; the file system decides their order.
  const std::string own0 = directories[0] + "/Own0.dll";
  std::string rest = expected.substr(std::string(kTpa).size());
  EXPECT_THAT(tpa, ::testing::AnyOf(kTpa + (":" + own0) + rest, own0 + ":" + kTpa + rest));
}

TEST_F(TpaCache, IsUsedUnchangedIfComplete) {
  keepCaches();
  put(kCache, "[START]/a/A.dll:/b/B.dll[END]");
  const DriverRun launched = launch();
  EXPECT_EQ(launched.result("get_tpa"), "/a/A.dll:/b/B.dll");
  EXPECT_THAT(launched.lines(), Contains(kCached));
  EXPECT_THAT(launched.lines(), Not(Contains(kSearching)));
  EXPECT_THAT(launched.markers, Contains("[quillon-tv-plugin] Get TPA by cache file"));
}

TEST_F(TpaCache, ServesTheSecondLaunch) {
  keepCaches();
  EXPECT_THAT(launch().lines(), Contains(kSearching));
  const DriverRun second = launch();
  EXPECT_THAT(second.lines(), Contains(kCached));
  EXPECT_EQ(second.result("get_tpa"), kTpa);
}

TEST_F(TpaCache, OfMarkersOnlyIsAnEmptyList) {
  keepCaches();
  put(kCache, "[START][END]");
  const DriverRun launched = launch();
  EXPECT_TRUE(launched.result("get_tpa").is_null());
  EXPECT_EQ(launched.lines().back(), "4 [quillon-tv-plugin] GetTPA Finish");
}

TEST_F(TpaCache, IsReplacedIfIncomplete) {
  keepCaches();
  for (const char* content :
       {"", "[START]/a/A.dll", "/a/A.dll[END]", "[start]/a/A.dll[end]", "[START]/a/A.dll[END]\n"}) {
    put(kCache, content);
    const DriverRun launched = launch();
    EXPECT_EQ(launched.result("get_tpa"), kTpa) << content;
    EXPECT_THAT(launched.lines(), Contains("4 [quillon-tv-plugin] TPA Cache file was crashed."))
        << content;
    EXPECT_EQ(read(kCache), std::string("[START]") + kTpa + "[END]");
  }
}

TEST_F(TpaCache, IsRemovedIfTheWritableFlagIsMissing) {
  put("/etc/dotnet_flag.ini", "same");
  put(kCache, "[START]/a/A.dll[END]");
  const DriverRun launched = launch();
  EXPECT_EQ(launched.result("get_tpa"), kTpa);
  EXPECT_THAT(launched.lines(), Contains("4 [quillon-tv-plugin] remove cache"));
}

TEST_F(TpaCache, IsRemovedAtEveryConstructionWhileTheFlagsDiffer) {
  put("/etc/dotnet_flag.ini", "same");
  put("/opt/etc/dotnet_flag.ini", "same\n");
  for (int launches = 0; launches < 2; ++launches) {
    put(kCache, "[START]/a/A.dll[END]");
    const DriverRun launched = run({"initialize=inhouse", std::string("read=") + kCache});
    EXPECT_TRUE(launched.result("read").is_null());
    EXPECT_THAT(launched.lines(), Contains("4 [quillon-tv-plugin] RO and RW diff"));
  }
  EXPECT_EQ(read("/opt/etc/dotnet_flag.ini"), "same\n");
}

class FlagFiles : public TpaCache {
 protected:
  static constexpr char kCoba[] = "/opt/usr/home/owner/share/dotnet/CoBA.txt";

  // Returns which lists remain after the construction of a strategy, and its log.
  struct Outcome {
    bool tpaKept;
    bool cobaKept;
    std::vector<std::string> lines;
  };
  Outcome construct() {
    put(kCache, "[START]/a/A.dll[END]");
    put(kCoba, "[START]:/x/shared/res/[END]");
    const DriverRun launched = run({"initialize=inhouse"});
    EXPECT_EQ(launched.status, 0) << launched.output;
    return {exists(kCache), exists(kCoba), launched.lines()};
  }
  void expectBothGone(const std::string& milestone) {
    const Outcome outcome = construct();
    EXPECT_FALSE(outcome.tpaKept);
    EXPECT_FALSE(outcome.cobaKept);
    EXPECT_THAT(outcome.lines, Contains("4 [quillon-tv-plugin] " + milestone));
  }
  void expectBothKept() {
    const Outcome outcome = construct();
    EXPECT_TRUE(outcome.tpaKept);
    EXPECT_TRUE(outcome.cobaKept);
    EXPECT_THAT(outcome.lines, Contains("4 [quillon-tv-plugin] RO and RW same"));
  }
};

TEST_F(FlagFiles, ThatDifferRemoveBothLists) {
  put("/etc/dotnet_flag.ini", "1");
  put("/opt/etc/dotnet_flag.ini", "2");
  expectBothGone("RO and RW diff");
}

TEST_F(FlagFiles, ThatAgreeKeepBothLists) {
  keepCaches();
  expectBothKept();
}

TEST_F(FlagFiles, AMissingReadOnlyCopyCountsAsAnEmptyOne) {
  put("/opt/etc/dotnet_flag.ini", "");
  expectBothKept();
  put("/opt/etc/dotnet_flag.ini", "1");
  expectBothGone("RO and RW diff");
}

TEST_F(FlagFiles, AMissingWritableCopyRemovesBothListsEveryTime) {
  put("/etc/dotnet_flag.ini", "1");
  expectBothGone("remove cache");
  EXPECT_FALSE(exists("/opt/etc/dotnet_flag.ini"));
  expectBothGone("remove cache");
}

TEST_F(TpaCache, IsNotWrittenThroughALink) {
  keepCaches();
  std::filesystem::create_symlink("/opt/usr/target", onMachine(kCache));
  const DriverRun launched = launch();
  EXPECT_EQ(launched.result("get_tpa"), kTpa);
  EXPECT_TRUE(std::filesystem::is_symlink(onMachine(kCache)));
  EXPECT_FALSE(exists("/opt/usr/target"));
  EXPECT_THAT(launched.messages(6), Contains(std::string("Symbolic link is detected : ") + kCache));
}

TEST_F(TpaCache, MayBeImpossibleToWrite) {
  std::filesystem::remove(onMachine("/opt/usr/home/owner/share/dotnet"));
  const DriverRun launched = launch();
  EXPECT_EQ(launched.result("get_tpa"), kTpa);
  EXPECT_THAT(launched.messages(6), Contains("Fail to write string to file - open error"));
}

}  // namespace
}  // namespace quillon::test
