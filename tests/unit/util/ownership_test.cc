#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/controlling_terminal.h"
#include "tests/support/skip.h"
#include "tests/support/tree_test.h"
#include "util/zq_utils/files.h"

using quillon::test::controllingTerminalAfter;
using quillon::test::platform;
using quillon::test::TreeTest;

namespace {

bool ownershipIsRefused = false;

}  // namespace

// Replaces the function of the C library, because no file system refuses this call to root.
extern "C" int fchown(int descriptor, uid_t user, gid_t group) noexcept {
  if (ownershipIsRefused) {
    errno = EPERM;
    return -1;
  }
  return static_cast<int>(syscall(SYS_fchown, descriptor, user, group));
}

namespace {

using Texts = std::vector<std::string>;

class Ownership : public TreeTest {
 protected:
  void TearDown() override { ownershipIsRefused = false; }

  static struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
  }
  static std::string ownNumbers() {
    return "(uid: " + std::to_string(geteuid()) + ", gid: " + std::to_string(getegid()) + ")";
  }
  std::string failure(const std::string& from, const std::string& to) const {
    return "6 Failed to copy ownership and permissions from " + from + " to " + to;
  }
};

TEST_F(Ownership, CopiesPermissionBits) {
  makeFile("from");
  makeFile("to");
  chmod(at("from").c_str(), 04751);
  copyOwnershipAndPermissions(at("from"), at("to"));
  EXPECT_EQ(statusOf(at("to")).st_mode & 07777, 04751U);
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Ownership, CopiesOwnerAndGroup) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only the superuser gives files away");
  }
  makeFile("from");
  makeFile("to");
  ASSERT_EQ(chown(at("from").c_str(), 1234, 4321), 0);
  copyOwnershipAndPermissions(at("from"), at("to"));
  EXPECT_EQ(statusOf(at("to")).st_uid, 1234U);
  EXPECT_EQ(statusOf(at("to")).st_gid, 4321U);
}

TEST_F(Ownership, NeedsASource) {
  copyOwnershipAndPermissions(at("missing"), makeFile("to"));
  EXPECT_EQ(platform().lines(), Texts{failure(at("missing"), at("to"))});
  EXPECT_EQ(platform().log[0].function(), "copyOwnershipAndPermissions");
}

TEST_F(Ownership, NeedsADestinationThatOpens) {
  copyOwnershipAndPermissions(makeFile("from"), at("to"));
  EXPECT_EQ(platform().lines(),
            (Texts{"6 Can't open directory: " + at("to"),
                   "6 Failed to change owner: " + at("to") + ", " + ownNumbers(),
                   failure(at("from"), at("to"))}));
  EXPECT_EQ(platform().log[0].function(), "setOwnership");
  EXPECT_EQ(platform().log[1].function(), "setDirOwnershipAndPermissions");
}

TEST_F(Ownership, ATerminalDoesNotBecomeTheControllingTerminal) {
  const std::string source = makeFile("source");
  EXPECT_EQ(controllingTerminalAfter(
                [&](const auto& path) { copyOwnershipAndPermissions(source, path); }),
            "none");
}

TEST_F(Ownership, LeavesPermissionsIfTheOwnerCannotChange) {
  makeFile("from");
  makeFile("to");
  chmod(at("from").c_str(), 0777);
  chmod(at("to").c_str(), 0600);
  ownershipIsRefused = true;
  copyOwnershipAndPermissions(at("from"), at("to"));
  EXPECT_EQ(platform().lines(),
            (Texts{"6 Failed to change owner of: " + at("to"),
                   "6 Failed to change owner: " + at("to") + ", " + ownNumbers(),
                   failure(at("from"), at("to"))}));
  EXPECT_EQ(statusOf(at("to")).st_mode & 07777, 0600U);
}

TEST_F(Ownership, SaysThatPermissionsCannotChange) {
  makeFile("from");
  chmod(at("from").c_str(), 0640);
  const std::string fixed = "/proc/self/comm";  // no user can change its permission bits
  copyOwnershipAndPermissions(at("from"), fixed);
  EXPECT_EQ(
      platform().lines(),
      (Texts{"6 Failed to set permissions for directory: " + fixed + ", Operation not permitted",
             "6 Failed to change permission: " + fixed + ", (" + std::to_string(0640) + ")",
             failure(at("from"), fixed)}));
  EXPECT_EQ(platform().log[0].function(), "setDirPermissions");
  EXPECT_EQ(platform().log[1].function(), "setDirOwnershipAndPermissions");
}

}  // namespace
