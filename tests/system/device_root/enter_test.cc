#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <sstream>
#include <thread>

#include "quillon/base/exit_status.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/skip.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Enter = DeviceRootTest;

TEST_F(Enter, ShowsTheDeviceFoldersAndTheMachineAround) {
  write(root_ / "usr/share/dotnet.velora/framework/Device.dll", "device");
  write(root_ / "opt/usr/apps/clock/clock.dll", "clock");
  const Outcome outcome =
      inside(root_,
             "cat /usr/share/dotnet.velora/framework/Device.dll "
             "/opt/usr/apps/clock/clock.dll; test -x /usr/bin/env && "
             "test -e /proc/self/stat && test -c /dev/null && echo -n +machine");
  EXPECT_EQ(outcome.output, "deviceclock+machine");
  EXPECT_FALSE(fs::exists("/usr/share/dotnet.velora/framework/Device.dll"));
}

TEST_F(Enter, WritesToDeviceFoldersGoToTheDeviceRoot) {
  fs::create_directory(root_ / "zone");
  const Outcome outcome = inside(
      root_,
      "for d in usr/share/dotnet.velora usr/apps opt/usr opt/etc opt/data opt/share zone tmp; "
      "do echo $d > /$d/written || exit 1; done; rm /opt/usr/written");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  for (const char* folder :
       {"usr/share/dotnet.velora", "usr/apps", "opt/etc", "opt/data", "opt/share", "zone", "tmp"}) {
    EXPECT_EQ(read(root_ / folder / "written"), std::string(folder) + "\n");
  }
  EXPECT_FALSE(fs::exists(root_ / "opt/usr/written"));
}

// All folders at the top, and a folder below one of them.
TEST_F(Enter, NothingElseCanBeWritten) {
  const Outcome outcome = inside(
      root_,
      "for d in / /*/ /usr/bin/ /var/tmp/ /dev/shm/../ " + root_.string() +
          "/; do case $d in /proc/|/sys/|/tmp/) continue;; esac; "
          "if touch $d/quillon-written 2>/tmp/error; then echo \"wrote $d\"; rm "
          "$d/quillon-written; "
          "elif ! grep -q 'Read-only file system' /tmp/error; then cat /tmp/error; fi; done");
  if (::geteuid() == 0) {
    EXPECT_THAT(outcome.output, IsEmpty());
  } else {
    EXPECT_THAT(outcome.output, Not(HasSubstr("wrote")));
  }
}

TEST_F(Enter, SharedMemoryIsThePrivateOne) {
  const std::string name = "/dev/shm/quillon-" + std::to_string(::getpid());
  const Outcome outcome = inside(root_, "echo x > " + name + " && ls /dev/shm | wc -l");
  EXPECT_EQ(outcome.output, "1\n");
  EXPECT_FALSE(fs::exists(name));
}

TEST_F(Enter, OtherFilesOfTheDeviceRootHideTheMachines) {
  write(root_ / "usr/lib/libzone.so.5", "zone");
  write(root_ / "etc/hostname", "device\n");
  const Outcome outcome = inside(root_,
                                 "cat /usr/lib/libzone.so.5 /lib/libzone.so.5 /etc/hostname; "
                                 "test -e /etc/passwd && cmp /etc/dotnet_flag.ini "
                                 "/opt/etc/dotnet_flag.ini && echo same; : > /etc/hostname");
  EXPECT_THAT(outcome.output, HasSubstr("zonezonedevice\nsame\n"));
  EXPECT_THAT(outcome.output, HasSubstr("Read-only file system"));
  EXPECT_EQ(read(root_ / "etc/hostname"), "device\n");
}

TEST_F(Enter, FilesOnlyInTheDeviceRootAppear) {
  write(root_ / "factory/serial", "42");
  write(root_ / "version", "7");
  fs::create_symlink("opt/usr", root_ / "home-of-apps");
  const Outcome outcome = inside(root_,
                                 "cat /factory/serial /version; readlink /home-of-apps; "
                                 "touch /factory/x 2>/dev/null || echo -n refused");
  EXPECT_EQ(outcome.output, "427opt/usr\nrefused");
}

TEST_F(Enter, HidesItsOwnRecord) { EXPECT_NE(inside(root_, "test -e /.quillon").status, 0); }

TEST_F(Enter, AZoneFolderAppearsOnlyIfTheDeviceRootHasOne) {
  EXPECT_EQ(inside(root_, "test -e /zone").status, 1);
  write(root_ / "zone/appzone", "");
  EXPECT_EQ(inside(root_, "test -e /zone/appzone").status, 0);
}

TEST_F(Enter, KeepsTheMachinesTopLinks) {
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    if (entry.is_symlink()) {
      EXPECT_EQ(inside(root_, "readlink " + entry.path().string()).output,
                fs::read_symlink(entry.path()).string() + "\n");
    }
  }
}

TEST_F(Enter, RefusesAFolderInPlaceOfALinkOfTheMachine) {
  if (!fs::is_symlink("/bin")) {
    QUILLON_SKIP("/bin is a folder on this machine");
  }
  write(root_ / "bin/tool", "");
  const Outcome outcome = inside(root_, "true");
  EXPECT_EQ(outcome.status, kNoNamespace);
  EXPECT_THAT(outcome.output, HasSubstr("'" + (root_ / "bin").string() + "' is a folder"));
}

TEST_F(Enter, TheFrameworkIsAtTheDevicePathAndReadOnly) {
  const fs::path framework = fresh("/var/tmp");
  write(framework / "System.Runtime.dll", "runtime");
  ASSERT_TRUE(device::init(root_, {framework}));
  const Outcome outcome =
      inside(root_,
             "cd /usr/share/dotnet.velora/netcoreapp && cat System.Runtime.dll && "
             "realpath System.Runtime.dll; touch x");
  EXPECT_THAT(outcome.output,
              HasSubstr("runtime/usr/share/dotnet.velora/netcoreapp/System.Runtime.dll\n"));
  EXPECT_THAT(outcome.output, HasSubstr("Read-only file system"));
  EXPECT_TRUE(fs::is_empty(root_ / "usr/share/dotnet.velora/netcoreapp"));
}

TEST_F(Enter, ReportsAMissingFramework) {
  const fs::path framework = fresh("/var/tmp");
  ASSERT_TRUE(device::init(root_, {framework}));
  fs::remove_all(framework);
  const Outcome outcome = inside(root_, "true");
  EXPECT_EQ(outcome.status, kNoRuntime);
  EXPECT_THAT(outcome.output, HasSubstr(framework.string()));
  EXPECT_THAT(outcome.output, HasSubstr("quillon device init " + root_.string()));
}

TEST_F(Enter, RefusesAFolderThatIsNotADeviceRoot) {
  EXPECT_EQ(inside(root_ / "missing", "true").status, kNoDeviceRoot);
  EXPECT_EQ(inside(root_ / "etc", "true").status, kNoDeviceRoot);
  fs::remove(root_ / "usr/apps");
  const Outcome outcome = inside(root_, "true");
  EXPECT_EQ(outcome.status, kNoDeviceRoot);
  EXPECT_THAT(outcome.output, HasSubstr("'usr/apps'"));
}

TEST_F(Enter, RefusesADeviceFolderThatIsALink) {
  const fs::path elsewhere = fresh("/var/tmp");
  fs::remove_all(root_ / "opt/data");
  fs::create_directory_symlink(elsewhere, root_ / "opt/data");
  EXPECT_EQ(inside(root_, "touch /opt/data/x").status, kNoDeviceRoot);
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(Enter, RefusesAProcessOfTwoThreads) {
  const Outcome outcome = inChild([&]() -> int {
    std::thread other([] { ::pause(); });
    const auto entered = device::enter(root_, {});
    ::_exit(!entered && entered.error().what.find("one thread") != std::string::npos ? 0 : 1);
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(Enter, KeepsTheWorkingDirectoryIfItExistsInside) {
  const auto from = [&](const fs::path& directory, const device::EnterOptions& options) {
    return inChild([&] {
             fs::current_path(directory);
             return device::enter(root_, options) ? (std::cout << fs::current_path().string(), 0)
                                                  : 1;
           })
        .output;
  };
  EXPECT_EQ(from("/var", {}), "/var");
  EXPECT_EQ(from("/usr/bin", {}), "/usr/bin");
  const fs::path hidden = fresh("/tmp");
  EXPECT_EQ(from(hidden, {}), "/");
  EXPECT_EQ(from(hidden, {.visible = {hidden}}), hidden.string());
}

TEST_F(Enter, ShowsAHiddenPathReadOnly) {
  const fs::path hidden = fresh("/tmp");
  write(hidden / "deep/file", "seen");
  const std::string file = (hidden / "deep/file").string();
  EXPECT_NE(inside(root_, "cat " + file).status, 0);
  const Outcome folder =
      inside(root_, "cat " + file + "; touch " + hidden.string() + "/x", {.visible = {hidden}});
  EXPECT_THAT(folder.output, HasSubstr("seen"));
  EXPECT_THAT(folder.output, HasSubstr("Read-only file system"));
  EXPECT_EQ(inside(root_, "cat " + file, {.visible = {file}}).output, "seen");
}

TEST_F(Enter, IgnoresVisiblePathsThatWouldHideTheDevice) {
  const fs::path hidden = fresh("/tmp");
  const Outcome outcome = inside(root_, "test -e " + hidden.string() + " || touch /tmp/written",
                                 {.visible = {"/tmp", "/", "/no/such"}});
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_TRUE(fs::exists(root_ / "tmp/written"));
}

TEST_F(Enter, DoesNotFollowALinkToMakeAMountPoint) {
  const fs::path hidden = fresh("/tmp");
  const fs::path elsewhere = fresh("/var/tmp");
  write(hidden / "deep/file", "seen");
  fs::create_directory_symlink(elsewhere, root_ / hidden.relative_path());
  const Outcome outcome = inside(root_, "true", {.visible = {hidden / "deep"}});
  EXPECT_EQ(outcome.status, kNoNamespace);
  EXPECT_THAT(outcome.output, HasSubstr((hidden / "deep").string()));
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(Enter, KeepsAWritablePathWritable) {
  const fs::path hidden = fresh("/tmp");
  const fs::path plain = fresh("/var/tmp");
  const Outcome outcome =
      inside(root_, "echo a > " + hidden.string() + "/a; echo b > " + plain.string() + "/b",
             {.writable = {hidden, plain}});
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(read(hidden / "a"), "a\n");
  EXPECT_EQ(read(plain / "b"), "b\n");
}

TEST_F(Enter, RefusesAWritableFolderThatContainsDeviceFolders) {
  for (const char* path : {"/", "/opt", "/usr/share/../../tmp", "/no/such"}) {
    EXPECT_EQ(inside(root_, "true", {.writable = {path}}).status, kUnusablePath) << path;
  }
}

TEST_F(Enter, TheDeviceRootStaysReachableAtItsOwnPath) {
  write(root_ / "opt/data/file", "x");
  EXPECT_EQ(inside(root_, "cat " + root_.string() + "/opt/data/file").output, "x");
}

TEST_F(Enter, TemporaryFilesGoToTheDeviceRoot) {
  ::setenv("TMPDIR", "/var/tmp", 1);
  const Outcome outcome = inside(root_, "echo \"[$TMPDIR]\"; mktemp");
  ::unsetenv("TMPDIR");
  EXPECT_THAT(outcome.output, ::testing::StartsWith("[]\n/tmp/"));
}

TEST_F(Enter, TheHomeDirectoryIsAFolderOfTheDeviceRoot) {
  const std::string home = "/opt/usr/home/" + std::to_string(::geteuid());
  const Outcome outcome =
      inside(root_,
             "echo \"$HOME\" \"$XDG_CONFIG_HOME\" \"$XDG_CACHE_HOME\" \"$XDG_DATA_HOME\" "
             "\"$XDG_STATE_HOME\"; stat -c '%a %u' \"$HOME\" \"$XDG_DATA_HOME\"; echo x > ~/file");
  const std::string owner = "700 " + std::to_string(::geteuid()) + "\n";
  EXPECT_EQ(outcome.output, home + " " + home + "/.config " + home + "/.cache " + home +
                                "/.local/share " + home + "/.local/state\n" + owner + owner);
  EXPECT_EQ(read(root_ / fs::path(home).relative_path() / "file"), "x\n");
}

// HOME may have been changed in a shell inside.
TEST_F(Enter, EnteringAgainSetsTheHomeDirectory) {
  const Outcome outcome = inChild([&] {
    if (!device::enter(root_, {}) || ::setenv("HOME", "/elsewhere", 1) != 0) {
      return 1;
    }
    const auto again = device::enter(root_, {});
    return again && std::string(::getenv("HOME")).starts_with("/opt/usr/home/") ? 0 : 2;
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(Enter, ReportsAHiddenWorkingDirectory) {
  const fs::path hidden = fresh("/tmp");
  const Outcome outcome = inChild([&] {
    fs::current_path(hidden);
    const auto entered = device::enter(root_, {});
    return entered && entered->hiddenDirectory == hidden && fs::current_path() == "/" ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
  const Outcome removed = inChild([&] {
    fs::current_path(fresh("/var/tmp"));
    fs::remove(fs::current_path());
    const auto entered = device::enter(root_, {});
    return entered && entered->hiddenDirectory == fs::path() && fs::current_path() == "/" ? 0 : 1;
  });
  EXPECT_EQ(removed.status, 0);
}

TEST_F(Enter, EnteringAgainChangesNothing) {
  const fs::path other = fresh("/var/tmp");
  ASSERT_TRUE(device::init(other, {}));
  const Outcome outcome = inChild([&] {
    if (device::current() || !device::enter(root_, {})) {
      return 1;
    }
    const std::string before = read("/proc/self/mountinfo");
    if (device::current() != root_ || !device::enter(root_, {})) {
      return 2;
    }
    if (read("/proc/self/mountinfo") != before) {
      return 3;
    }
    return device::enter(other, {}) ? 4 : 0;
  });
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(Enter, LeavesNoDescriptorOpen) {
  const Outcome outcome = inChild([&] {
    const auto before = openDescriptors();
    return device::enter(root_, {}) && openDescriptors() == before ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(Enter, AUmaskDoesNotMakeAMountPointUnreachable) {
  const fs::path hidden = fresh("/tmp");
  write(hidden / "deep/file", "seen");
  const Outcome outcome = inChild([&] {
    ::umask(077);
    return device::enter(root_, {.visible = {hidden / "deep"}}) ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(fs::status(root_ / hidden.relative_path()).permissions(), fs::perms(0755));
}

// Paths with characters that are special in mount options.
TEST_F(Enter, AcceptsADeviceRootOfAnyName) {
  for (const char* name : {"a:b", "a,b", "a\\b", "with blank", "line\nbreak", "(x)"}) {
    const fs::path root = root_ / name;
    ASSERT_TRUE(device::init(root, {}));
    EXPECT_EQ(inside(root, "cat /etc/dotnet_flag.ini").output, read(root / "etc/dotnet_flag.ini"))
        << name;
  }
}

class EnterUnderTmp : public DeviceRootTest {
 protected:
  EnterUnderTmp() : DeviceRootTest("/tmp") {}
};

TEST_F(EnterUnderTmp, Works) {
  write(root_ / "opt/data/file", "x");
  const Outcome outcome =
      inside(root_, "cat " + root_.string() + "/opt/data/file && echo y > /tmp/y");
  EXPECT_EQ(outcome.output, "x");
  EXPECT_EQ(read(root_ / "tmp/y"), "y\n");
}

// A device root below a folder that it overlays.
class EnterUnderOpt : public DeviceRootTest {
 protected:
  EnterUnderOpt() : DeviceRootTest(::access("/opt", W_OK) == 0 ? "/opt" : "/tmp") {}
};

TEST_F(EnterUnderOpt, Works) {
  if (root_.parent_path() != "/opt") {
    QUILLON_SKIP("this user may not write to /opt");
  }
  write(root_ / "opt/vendor/file", "x");
  const Outcome outcome =
      inside(root_, "cat /opt/vendor/file " + root_.string() +
                        "/opt/vendor/file; touch /opt/usr/written; "
                        "touch /opt/x 2>/dev/null || echo -n refused; stat -c %a /opt");
  EXPECT_EQ(outcome.output, "xxrefused755\n");
  EXPECT_TRUE(fs::exists(root_ / "opt/usr/written"));
  EXPECT_FALSE(fs::exists("/opt/vendor"));
}

TEST_F(Enter, KeepsTheModeOfTheFoldersAboveIt) {
  if (::geteuid() != 0) {
    QUILLON_SKIP("only root has a home that others may not look into");
  }
  const fs::path root = fresh("/root");
  ASSERT_TRUE(device::init(root, {}));
  write(root / "root/vendor", "x");
  struct stat status {};
  ASSERT_EQ(::stat("/root", &status), 0);
  std::ostringstream expected;
  expected << 'x' << std::oct << (status.st_mode & 07777U) << '\n';
  EXPECT_EQ(inside(root, "cat /root/vendor; stat -c %a /root").output, expected.str());
}

}  // namespace
}  // namespace quillon::test
