#include "plugin/src/plugin-util/coba_directories.h"

#include <gmock/gmock.h>

#include "tests/support/recording_platform.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kKey[] = "http://korvane.example/velora/metadata/support-fs-external-component";

FakePackage offering(const std::string& id) {
  return {id, "/opt/usr/apps/" + id, {}, {{id + ".app", "", false, {{kKey, "whatever"}}}}};
}

class CobaDirectories : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    coBASharedDirsInApp.clear();
  }
};

TEST_F(CobaDirectories, NoPackageGivesAnEmptyList) {
  platform().packages = {{"p", "/r", {}, {{"a", "", false, {{"other", ""}}}}}};
  EXPECT_EQ(GetCoBASharedDirsInApp(), "");
  EXPECT_THAT(platform().lines(), ElementsAre("3 "));
  EXPECT_THAT(platform().openHandles, IsEmpty());
}

TEST_F(CobaDirectories, EachEntryBringsItsSeparator) {
  platform().packages = {offering("pkgA"), offering("pkgB")};
  const std::string expected = ":/opt/usr/apps/pkgA/shared/res/:/opt/usr/apps/pkgB/shared/res/";
  EXPECT_EQ(GetCoBASharedDirsInApp(), expected);
  EXPECT_EQ(coBASharedDirsInApp, expected);
  EXPECT_THAT(platform().lines(), ElementsAre("3 Path : /opt/usr/apps/pkgA",
                                              "3 Path : /opt/usr/apps/pkgB", "3 " + expected));
  EXPECT_THAT(platform().openHandles, IsEmpty());
  EXPECT_THAT(platform().calls,
              Contains(std::string("app_info_metadata_filter_add(filter, ") + kKey + ", null)"));
}

TEST_F(CobaDirectories, TwoApplicationsOfAPackageAreListedTwice) {
  platform().packages = {offering("p")};
  platform().packages[0].applications.push_back({"second", "", false, {{kKey, ""}}});
  EXPECT_EQ(GetCoBASharedDirsInApp(), ":/opt/usr/apps/p/shared/res/:/opt/usr/apps/p/shared/res/");
}

TEST_F(CobaDirectories, ASecondQueryAppendsTheListAgain) {
  platform().packages = {offering("p")};
  GetCoBASharedDirsInApp();
  EXPECT_EQ(GetCoBASharedDirsInApp(), ":/opt/usr/apps/p/shared/res/:/opt/usr/apps/p/shared/res/");
}

TEST_F(CobaDirectories, APackageWithoutARootIsListedWithNone) {
  platform().packages = {offering("p")};
  platform().failures["pkgmgrinfo_pkginfo_get_root_path"] = -1;
  EXPECT_EQ(GetCoBASharedDirsInApp(), ":/shared/res/");
  EXPECT_EQ(platform().lines().front(), "3 Path : ");
}

TEST_F(CobaDirectories, AnApplicationWithoutAPackageIsPassedOver) {
  platform().packages = {offering("p"), offering("q")};
  platform().failures["app_info_get_package"] = -1;
  EXPECT_EQ(GetCoBASharedDirsInApp(), "");
  EXPECT_THAT(platform().calls, Contains("app_info_get_package(p.app)"));
  EXPECT_THAT(platform().calls, Contains("app_info_get_package(q.app)"));
}

TEST_F(CobaDirectories, TheCallbackTakesANullHandleAndGoesOn) {
  EXPECT_TRUE(GetCoBAAppInfoCB(nullptr, nullptr));
  EXPECT_EQ(coBASharedDirsInApp, "");
  EXPECT_THAT(platform().calls, IsEmpty());
}

TEST_F(CobaDirectories, AFilterThatWasNotMadeIsNotDestroyed) {
  platform().failures["app_info_metadata_filter_create"] = -1;
  EXPECT_EQ(GetCoBASharedDirsInApp(), "");
  for (const std::string& call : platform().calls) {
    EXPECT_THAT(call, Not(::testing::StartsWith("app_info_metadata_filter_destroy")));
  }
}

TEST_F(CobaDirectories, IgnoresTheResultOfMakingTheFilter) {
  platform().packages = {offering("p")};
  platform().failures["app_info_metadata_filter_create"] = -1;
  platform().handlesOfFailures = {"app_info_metadata_filter_create"};
  EXPECT_EQ(GetCoBASharedDirsInApp(), ":/opt/usr/apps/p/shared/res/");
  EXPECT_THAT(platform().openHandles, IsEmpty());
}

TEST_F(CobaDirectories, AFilterThatFailsIsAskedAllTheSame) {
  const std::string condition = std::string(kKey) + ", null)";
  platform().failures = {{"app_info_metadata_filter_create", -1}};
  GetCoBASharedDirsInApp();
  EXPECT_THAT(platform().calls, ElementsAre("app_info_metadata_filter_create()",
                                            "app_info_metadata_filter_add(null, " + condition,
                                            "app_info_metadata_filter_foreach(null)"));
  platform().calls.clear();
  platform().failures = {{"app_info_metadata_filter_add", -1}};
  GetCoBASharedDirsInApp();
  EXPECT_THAT(platform().calls, ElementsAre("app_info_metadata_filter_create()",
                                            "app_info_metadata_filter_add(filter, " + condition,
                                            "app_info_metadata_filter_foreach(filter)",
                                            "app_info_metadata_filter_destroy(filter)"));
}

}  // namespace
}  // namespace quillon::test
