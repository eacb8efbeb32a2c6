#include "util/zq_utils/package_lookup.h"

#include <gmock/gmock.h>

#include "tests/support/recording_platform.h"

using quillon::test::platform;
using quillon::test::PlatformTest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class PackageLookup : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform().packages = {{"pkg",
                            "/opt/usr/apps/pkg",
                            {},
                            {{"app", "/opt/x/bin/App.dll", false, {{"key", "value"}}},
                             {"other", "/opt/x/bin/Other.dll", false, {}}}}};
  }
  void TearDown() override { EXPECT_TRUE(platform().openHandles.empty()); }
};

TEST_F(PackageLookup, RootPathOfAllUsers) {
  std::string path = "before";
  EXPECT_EQ(getRootPath("pkg", path), 0);
  EXPECT_EQ(path, "/opt/usr/apps/pkg");
  EXPECT_THAT(platform().calls, ElementsAre("pkgmgr_installer_info_get_target_uid()",
                                            "pkgmgrinfo_pkginfo_get_pkginfo(pkg)",
                                            "pkgmgrinfo_pkginfo_get_root_path(pkg)",
                                            "pkgmgrinfo_pkginfo_destroy_pkginfo(pkg)"));
}

TEST_F(PackageLookup, RootPathOfOneUser) {
  platform().targetUser = 5001;
  std::string path;
  EXPECT_EQ(getRootPath("pkg", path), 0);
  EXPECT_EQ(path, "/opt/usr/apps/pkg");
  EXPECT_THAT(platform().calls, Contains("pkgmgrinfo_pkginfo_get_usr_pkginfo(pkg, 5001)"));
  EXPECT_THAT(platform().calls, Not(Contains(StartsWith("pkgmgrinfo_pkginfo_get_pkginfo("))));
}

TEST_F(PackageLookup, RootPathNeedsTheUser) {
  platform().failures["pkgmgr_installer_info_get_target_uid"] = -1;
  std::string path = "before";
  EXPECT_EQ(getRootPath("pkg", path), -1);
  EXPECT_EQ(path, "before");
  EXPECT_THAT(platform().lines(), ElementsAre("6 Failed to get UID"));
  EXPECT_EQ(platform().calls.size(), 1U);
}

TEST_F(PackageLookup, RootPathOfAnUnknownPackageFailsSilently) {
  std::string path = "before";
  EXPECT_EQ(getRootPath("unknown", path), -1);
  EXPECT_EQ(getRootPath("", path), -1);
  EXPECT_EQ(path, "before");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(PackageLookup, ARecordThatCouldNotBeOpenedIsNotReleased) {
  for (const uid_t user : {0U, 5001U}) {
    platform().targetUser = user;
    std::string text = "before";
    EXPECT_EQ(getRootPath("unknown", text), -1);
    EXPECT_EQ(getExecName("unknown", text), -1);
    EXPECT_EQ(getMetadataValue("unknown", "key", text), -1);
    EXPECT_EQ(text, "before");
  }
  EXPECT_THAT(platform().calls, Not(Contains(HasSubstr("destroy"))));
}

TEST_F(PackageLookup, RecordIsReleasedIfItHasNoRootPath) {
  platform().failures["pkgmgrinfo_pkginfo_get_root_path"] = -7;
  std::string path = "before";
  EXPECT_EQ(getRootPath("pkg", path), -1);
  EXPECT_EQ(path, "before");
}

TEST_F(PackageLookup, ExecutableNameIsItsFileName) {
  std::string name;
  EXPECT_EQ(getExecName("pkg", name), 0);
  EXPECT_EQ(name, "App.dll");
}

TEST_F(PackageLookup, EveryStepOfTheExecutableNameCanFail) {
  for (const char* step : {"pkgmgrinfo_pkginfo_get_pkginfo", "pkgmgrinfo_pkginfo_get_mainappid",
                           "pkgmgrinfo_appinfo_get_appinfo", "pkgmgrinfo_appinfo_get_exec"}) {
    platform().failures = {{step, -1}};
    std::string name = "before";
    EXPECT_EQ(getExecName("pkg", name), -1) << step;
    EXPECT_EQ(name, "before");
    EXPECT_TRUE(platform().openHandles.empty()) << step;
  }
}

TEST_F(PackageLookup, MetadataValueOfTheMainApplication) {
  std::string value = "before";
  EXPECT_EQ(getMetadataValue("pkg", "key", value), 0);
  EXPECT_EQ(value, "value");
}

TEST_F(PackageLookup, AbsentKeyIsNoFailure) {
  std::string value = "before";
  EXPECT_EQ(getMetadataValue("pkg", "other", value), 0);
  EXPECT_EQ(value, "before");
}

TEST_F(PackageLookup, MetadataNeedsTheMainApplication) {
  for (const char* step : {"pkgmgrinfo_pkginfo_get_pkginfo", "pkgmgrinfo_pkginfo_get_mainappid",
                           "pkgmgrinfo_appinfo_get_appinfo"}) {
    platform().failures = {{step, -1}};
    std::string value = "before";
    EXPECT_EQ(getMetadataValue("pkg", "key", value), -1) << step;
    EXPECT_EQ(value, "before");
    EXPECT_TRUE(platform().openHandles.empty()) << step;
  }
}

}  // namespace
