#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/skip.h"
#include "tests/support/tree_test.h"
#include "util/zq_utils/files.h"

using quillon::test::platform;
using quillon::test::TreeTest;
using ::testing::ElementsAre;

namespace {

class Labels : public TreeTest {
 protected:
  // Returns what updateAssemblyInfo writes to standard error.
  static std::string update(const std::string& from, const std::string& to, bool isSymlink) {
    ::testing::internal::CaptureStderr();
    updateAssemblyInfo(from, to, isSymlink);
    return ::testing::internal::GetCapturedStderr();
  }
};

TEST_F(Labels, AreSetAsAccessLabels) {
  EXPECT_TRUE(setSmack("/path", "System"));
  EXPECT_EQ(platform().labels["/path"], "System");
  EXPECT_THAT(platform().calls, ElementsAre("smack_setlabel(/path, System, 0)"));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Labels, FailureNamesPathAndLabel) {
  platform().failures["smack_setlabel"] = -1;
  EXPECT_FALSE(setSmack("/path", "System"));
  EXPECT_THAT(platform().lines(), ElementsAre("6 Fail to set smack label\n : /path : System"));
}

TEST_F(Labels, AreCopiedFromFileToFile) {
  makeFile("from");
  makeFile("to");
  platform().labels[at("from")] = "App";
  EXPECT_EQ(update(at("from"), at("to"), false), "");
  EXPECT_EQ(platform().labels[at("to")], "App");
  EXPECT_TRUE(platform().linkLabels.empty());
}

TEST_F(Labels, AreCopiedFromLinkToLink) {
  makeFile("from");
  makeLink("to", "from");
  platform().linkLabels[at("from")] = "App";
  EXPECT_EQ(update(at("from"), at("to"), true), "");
  EXPECT_EQ(platform().linkLabels[at("to")], "App");
  EXPECT_TRUE(platform().labels.empty());
}

TEST_F(Labels, SourceWithoutLabelIsSkippedSilently) {
  makeFile("from");
  makeFile("to");
  EXPECT_EQ(update(at("from"), at("to"), false), "");
  EXPECT_THAT(platform().calls, ElementsAre("smack_getlabel(" + at("from") + ", 0)"));
}

TEST_F(Labels, SourceWhoseLabelCannotBeReadIsSkippedSilently) {
  makeFile("from");
  makeFile("to");
  platform().failures = {{"smack_getlabel", -1}, {"smack_lgetlabel", -1}};
  EXPECT_EQ(update(at("from"), at("to"), false), "");
  EXPECT_EQ(update(at("from"), at("to"), true), "");
  EXPECT_TRUE(platform().labels.empty());
  EXPECT_TRUE(platform().linkLabels.empty());
}

TEST_F(Labels, FailuresGoToStandardError) {
  makeFile("from");
  platform().labels[at("from")] = "App";
  platform().failures["smack_setlabel"] = -1;
  EXPECT_EQ(update(at("from"), at("missing"), false),
            "Fail to set smack label\nFailed to change owner and group name\n");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Labels, OwnershipStaysIfTheSourceCannotBeExamined) {
  EXPECT_EQ(update(at("missing"), at("missing too"), false), "");
}

TEST_F(Labels, OwnerIsCopiedToFileOrLinkItself) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only the superuser gives files away");
  }
  makeFile("from");
  makeFile("to");
  makeLink("link", "to");
  ASSERT_EQ(chown(at("from").c_str(), 1234, 4321), 0);
  EXPECT_EQ(update(at("from"), at("link"), true), "");
  struct stat status;
  ASSERT_EQ(lstat(at("link").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
  ASSERT_EQ(stat(at("to").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(update(at("from"), at("link"), false), "");
  ASSERT_EQ(stat(at("to").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
}

}  // namespace
