// What another user who may write to a device root can do to the home directory of a user inside.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "tests/support/skip.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::StartsWith;

constexpr uid_t kVictim = 54321;

// Without an exec(), a process that has changed its user is not dumpable and cannot write its own
// maps of users.
bool become(uid_t user) {
  return ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0 &&
         ::prctl(PR_SET_DUMPABLE, 1) == 0;
}

class HomeDirectory : public DeviceRootTest {
 protected:
  // Enters the device root as the user and prints HOME and why it is not the device's.
  Outcome enterAs(uid_t user) const {
    return inChild([&] {
      if (user != ::geteuid() && !become(user)) {
        return 1;
      }
      ::setenv("HOME", "/machine", 1);
      ::setenv("XDG_DATA_HOME", "/machine/data", 1);
      const auto entered = device::enter(root_, {});
      if (!entered) {
        std::cout << entered.error().what;
        return 2;
      }
      std::cout << ::getenv("HOME") << ' ' << ::getenv("XDG_DATA_HOME") << '\n'
                << (entered->noHome ? entered->noHome->what + "; " + entered->noHome->remedy : "");
      return 0;
    });
  }
  [[nodiscard]] fs::path homeOf(uid_t user) const {
    return root_ / "opt/usr/home" / std::to_string(user);
  }
  void expectMachinesHome(const Outcome& outcome, uid_t user) const {
    EXPECT_EQ(outcome.output, "/machine /machine/data\nthe home directory '/opt/usr/home/" +
                                  std::to_string(user) +
                                  "' in the device root is not a folder of this user; let the "
                                  "owner of the device root remove it");
  }
};

TEST_F(HomeDirectory, IsNoLinkThatAnotherUserHasPlanted) {
  const fs::path elsewhere = fresh("/var/tmp");
  fs::create_symlink(elsewhere, homeOf(::geteuid()));
  expectMachinesHome(enterAs(::geteuid()), ::geteuid());
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(HomeDirectory, IsNoFile) {
  write(homeOf(::geteuid()), "");
  expectMachinesHome(enterAs(::geteuid()), ::geteuid());
}

TEST_F(HomeDirectory, IsNoFolderOfAnotherUser) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("needs root to be two users");
  }
  fs::create_directory(homeOf(kVictim));
  fs::permissions(homeOf(kVictim), fs::perms::all);
  expectMachinesHome(enterAs(kVictim), kVictim);
  EXPECT_TRUE(fs::is_empty(homeOf(kVictim)));
}

TEST_F(HomeDirectory, CannotBeReadOrReplacedByOthers) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("needs root to be two users");
  }
  const Outcome entered = enterAs(kVictim);
  EXPECT_THAT(entered.output, StartsWith("/opt/usr/home/54321 ")) << entered.output;
  const Outcome stranger = inChild([&] {
    if (!become(kVictim + 1)) {
      return 1;
    }
    std::error_code error;
    fs::rename(homeOf(kVictim), root_ / "opt/usr/home/moved", error);
    if (!error || ::rmdir((homeOf(kVictim) / ".cache").c_str()) == 0) {
      return 2;
    }
    return ::access((homeOf(kVictim) / ".config").c_str(), F_OK) == 0 ? 3 : 0;
  });
  EXPECT_EQ(stranger.status, 0);
}

}  // namespace
}  // namespace quillon::test
