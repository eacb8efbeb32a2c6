// The DLL search path of an "inhouse" application, and the cache file of its shared directories.
#include <gmock/gmock.h>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Not;

constexpr char kCache[] = "/opt/usr/home/owner/share/dotnet/CoBA.txt";
constexpr char kFixed[] = "/usr/share/dotnet.velora/lib:/usr/share/dotnet.velora/tvappapi";
constexpr char kOffers[] = R"("/velora/metadata/support-fs-external-component" = "any")";
constexpr char kSearching[] = "4 [quillon-tv-plugin] Get CoBA shared directories by searching.";

class CobaCache : public DeviceLaunch {
 protected:
  DriverRun launch() { return run({"initialize=inhouse", "get_dll_path"}); }
};

TEST_F(CobaCache, WithoutSharedDirectoriesThePathIsTheFixedOne) {
  keepCaches();
  EXPECT_EQ(launch().result("get_dll_path"), kFixed);
  EXPECT_EQ(read(kCache), "[START][END]");
  const DriverRun second = launch();
  EXPECT_EQ(second.result("get_dll_path"), kFixed);
  EXPECT_THAT(second.lines(),
              Contains("4 [quillon-tv-plugin] Get CoBA shared directories by cache file"));
  EXPECT_THAT(second.lines(), Not(Contains(kSearching)));
}

TEST_F(CobaCache, HoldsTheDirectoryOfEveryPackageThatOffersAComponent) {
  keepCaches();
  installApplication("pkgA", kOffers);
  installApplication("pkgB", kOffers);
  installApplication("pkgC");
  const std::string path = launch().result("get_dll_path");
  const std::string a = ":/opt/usr/apps/pkgA/shared/res/";
  const std::string b = ":/opt/usr/apps/pkgB/shared/res/";
  EXPECT_THAT(path, AnyOf(kFixed + a + b, kFixed + b + a));
  EXPECT_EQ(read(kCache), "[START]" + path.substr(std::string(kFixed).size()) + "[END]");
}

TEST_F(CobaCache, IsUsedUnchangedIfComplete) {
  keepCaches();
  put(kCache, "[START]:/x/shared/res/[END]");
  EXPECT_EQ(launch().result("get_dll_path"), std::string(kFixed) + ":/x/shared/res/");
}

TEST_F(CobaCache, IsReplacedIfIncomplete) {
  keepCaches();
  put(kCache, "[START]:/x/shared/res/");
  const DriverRun launched = launch();
  EXPECT_EQ(launched.result("get_dll_path"), kFixed);
  EXPECT_THAT(launched.lines(), Contains("4 [quillon-tv-plugin] Cache file was crashed."));
  EXPECT_EQ(read(kCache), "[START][END]");
}

TEST_F(CobaCache, IsRemovedWithTheWritableFlag) {
  put(kCache, "[START]:/x/shared/res/[END]");
  EXPECT_EQ(launch().result("get_dll_path"), kFixed);
}

}  // namespace
}  // namespace quillon::test
