#include "util/privilege_checker/privilege_checker.h"

#include <gmock/gmock.h>

#include "tests/support/recording_platform.h"

using quillon::test::platform;
using quillon::test::PlatformTest;
using ::testing::ElementsAre;

namespace {

class Privileges : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform().packages = {{"pkg", "", {"a", "wanted", "wanted/more", "z"}, {}}};
  }
};

TEST_F(Privileges, AreSearchedToTheEnd) {
  EXPECT_TRUE(HasPrivilege("wanted", "pkg"));
  EXPECT_THAT(platform().lines(), ElementsAre("3 a", "3 wanted", "4 ### Have wanted privilege ###",
                                              "3 wanted/more", "3 z"));
}

TEST_F(Privileges, MatchByteForByte) {
  EXPECT_FALSE(HasPrivilege("Wanted", "pkg"));
  EXPECT_FALSE(HasPrivilege("wante", "pkg"));
  EXPECT_FALSE(HasPrivilege("", "pkg"));
}

TEST_F(Privileges, AreAbsentIfThePackageIsUnknown) {
  EXPECT_FALSE(HasPrivilege("wanted", "unknown"));
  EXPECT_FALSE(HasPrivilege("wanted", ""));
  EXPECT_THAT(platform().lines(), ElementsAre("6 package_info_create return error code : -1",
                                              "6 package_info_create return error code : -1"));
  EXPECT_THAT(platform().calls,
              ElementsAre("package_info_create(unknown)", "package_info_create()"));
}

TEST_F(Privileges, FailureCodeIsLogged) {
  platform().failures["package_info_create"] = -22;
  EXPECT_FALSE(HasPrivilege("wanted", "pkg"));
  EXPECT_THAT(platform().lines(), ElementsAre("6 package_info_create return error code : -22"));
}

TEST_F(Privileges, APackageWithoutARecordHasNoneAndLogsCodeZero) {
  platform().nullHandles = {"package_info_create"};
  EXPECT_FALSE(HasPrivilege("wanted", "pkg"));
  EXPECT_THAT(platform().lines(), ElementsAre("6 package_info_create return error code : 0"));
  EXPECT_THAT(platform().calls, ElementsAre("package_info_create(pkg)"));
}

TEST_F(Privileges, NullsFromThePlatformArePassedOver) {
  PrivilegeSearch search{false, "wanted"};
  EXPECT_TRUE(privilege_info_cb(nullptr, &search));
  EXPECT_FALSE(search.found);
  EXPECT_TRUE(privilege_info_cb("wanted", nullptr));
  EXPECT_TRUE(platform().lines().empty());
}

TEST_F(Privileges, SearchAndEachStepAreTraced) {
  HasPrivilege("wanted", "pkg");
  ASSERT_EQ(platform().trace.size(), 10U);  // the search and its four steps
  EXPECT_NE(platform().trace[0].find("HasPrivilege("), std::string::npos);
  EXPECT_NE(platform().trace[1].find("privilege_info_cb("), std::string::npos);
  EXPECT_EQ(platform().log[1].message().rfind(" +DotNETLog:privilege_checker.cc(", 0), 0U);
}

}  // namespace
