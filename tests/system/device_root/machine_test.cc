// Entering a device root does not change the machine, even if the process is killed, and keeps the
// mounts of the machine.
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <random>
#include <set>

#include "tests/support/skip.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// Returns the names in the machine's top folders, without the files of tests that run in parallel.
std::set<std::string> machineNames() {
  std::set<std::string> names;
  for (const char* folder : {"/", "/usr", "/usr/share", "/etc", "/opt", "/dev/shm"}) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; entry != end; entry.increment(error)) {
      if (entry->path().filename().string().rfind("quillon-", 0) != 0) {
        names.insert(entry->path().string());
      }
    }
  }
  return names;
}

// Starts a process that enters `root`, kills it after `delay` microseconds, and returns whether it
// was inside by then.
bool enterAndKill(const fs::path& root, unsigned delay) {
  int ends[2];
  if (::pipe(ends) != 0) {
    return false;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    const bool entered = device::enter(root, {}).has_value();
    [[maybe_unused]] const ssize_t told = ::write(ends[1], "x", entered ? 1 : 0);
    ::pause();
  }
  ::close(ends[1]);
  ::usleep(delay);
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  char letter = 0;
  const bool entered = ::read(ends[0], &letter, 1) == 1;
  ::close(ends[0]);
  return entered;
}

// Makes `place` a shared mount with a chroot(2) environment, whose root is a plain folder in it.
fs::path makeJail(const fs::path& place) {
  const fs::path jail = place / "jail";
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, "") != 0 ||
      ::mount("quillon", place.c_str(), "tmpfs", 0, "") != 0 ||
      ::mount(nullptr, place.c_str(), nullptr, MS_SHARED, "") != 0) {
    return {};
  }
  fs::create_directories(jail / "usr");
  fs::create_directories(jail / "proc");
  ::mount("/usr", (jail / "usr").c_str(), nullptr, MS_BIND | MS_REC, "");
  ::mount("proc", (jail / "proc").c_str(), "proc", 0, "");
  return jail;
}

// Makes a device root inside the environment and enters it.
int enterInJail(const fs::path& jail) {
  if (::chroot(jail.c_str()) != 0 || ::chdir("/") != 0 || !device::init("/device", {})) {
    return 1;
  }
  if (const auto entered = device::enter("/device", {}); !entered) {
    std::cout << entered.error().what;
    return 2;
  }
  write("/opt/usr/written", "x");
  return fs::exists("/usr/bin/env") && read("/device/opt/usr/written") == "x" ? 0 : 3;
}

using Machine = DeviceRootTest;

// As the environments in which distributions build packages.
TEST_F(Machine, CanBeAChrootWhoseRootIsNoMountPoint) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("only root can call chroot(2)");
  }
  const fs::path place = fresh("/var/tmp");
  const Outcome outcome = inChild([&] {
    const fs::path jail = makeJail(place);
    const std::string mounts = read("/proc/self/mountinfo");
    const Outcome entered = inChild([&] { return enterInJail(jail); });
    std::cout << entered.output;
    return read("/proc/self/mountinfo") == mounts ? entered.status : 4;
  });
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(Machine, IsTheSameAfterwards) {
  const std::string mounts = read("/proc/self/mountinfo");
  const std::set<std::string> names = machineNames();
  EXPECT_EQ(inside(root_, "touch /tmp/x /opt/usr/x").status, 0);
  EXPECT_EQ(read("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(machineNames(), names);
}

TEST_F(Machine, IsTheSameWhenKilledAtAnyMoment) {
  const std::string mounts = read("/proc/self/mountinfo");
  const std::set<std::string> names = machineNames();
  std::mt19937 random(20240607);
  int inside = 0;
  int early = 0;
  for (int round = 0; round < 200; ++round) {
    // Up to twice the duration of entering, in steps shorter than the time between two calls; and a
    // few longer delays, so that the process gets inside on a busy machine, too.
    const unsigned longest = round % 4 == 0 ? 40000 : 8000;
    (enterAndKill(root_, static_cast<unsigned>(random() % longest)) ? inside : early) += 1;
    ASSERT_EQ(read("/proc/self/mountinfo"), mounts) << "round " << round;
  }
  EXPECT_EQ(machineNames(), names);
  EXPECT_GT(inside, 0);
  EXPECT_GT(early, 0);
  EXPECT_EQ(test::inside(root_, "cat /etc/dotnet_flag.ini").status, 0);
}

// With shared mounts, the default of most distributions: mounts propagate between namespaces.
TEST_F(Machine, IsTheSameWithSharedMounts) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("only root can share mounts first");
  }
  const Outcome outcome = inChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_SHARED, nullptr) != 0) {
      return 1;
    }
    const std::string mounts = read("/proc/self/mountinfo");
    if (inside(root_, "true").status != 0) {
      return 2;
    }
    return read("/proc/self/mountinfo") == mounts ? 0 : 3;
  });
  EXPECT_EQ(outcome.status, 0);
}

// Runs `script` inside, on a machine with a separate file system at "/etc/ssl".
class MachineWithMounts : public DeviceRootTest {
 protected:
  void SetUp() override {
    DeviceRootTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    if (::geteuid() != 0) {
      QUILLON_SKIP("only root can mount something first");
    }
    if (!fs::is_directory("/etc/ssl")) {
      QUILLON_SKIP("there is no /etc/ssl to mount on");
    }
  }

  Outcome run(uid_t user, const std::string& script) {
    return inChild([&] {
      if (::unshare(CLONE_NEWNS) != 0 ||
          ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
          ::mount("none", "/etc/ssl", "tmpfs", 0, nullptr) != 0) {
        return 1;
      }
      write("/etc/ssl/mounted", "mounted");
      // After a change of user, only a dumpable process may write its own id maps.
      if (::setgid(user) != 0 || ::setuid(user) != 0 || ::prctl(PR_SET_DUMPABLE, 1) != 0) {
        return 2;
      }
      const Outcome outcome = inside(root_, script);
      std::cout << outcome.output;
      return outcome.status;
    });
  }

  const std::string script_ =
      "cat /etc/ssl/mounted /etc/dotnet_flag.ini /etc/vendor/file; test -e /etc/passwd && "
      "stat -c %a /etc; touch /etc/x /etc/ssl/x";
};

TEST_F(MachineWithMounts, KeepsThemUnderAnOverlaidFolder) {
  write(root_ / "etc/vendor/file", "vendor");
  write(root_ / "etc/dotnet_flag.ini", "flag");
  const Outcome outcome = run(0, script_);
  EXPECT_THAT(outcome.output, HasSubstr("mountedflagvendor755\n"));
  EXPECT_THAT(outcome.output, HasSubstr("'/etc/x': Read-only file system"));
  EXPECT_THAT(outcome.output, HasSubstr("'/etc/ssl/x': Read-only file system"));
}

// In a user namespace, the kernel refuses an overlay that would show files below a mount.
TEST_F(MachineWithMounts, KeepsThemForAnOrdinaryUser) {
  write(root_ / "etc/vendor/file", "vendor");
  write(root_ / "etc/dotnet_flag.ini", "flag");
  const Outcome outcome = run(65534, script_);
  if (outcome.output.find("user namespaces are not available") != std::string::npos) {
    QUILLON_SKIP(outcome.output);
  }
  EXPECT_THAT(outcome.output, HasSubstr("mountedflagvendor755\n"));
}

}  // namespace
}  // namespace quillon::test
