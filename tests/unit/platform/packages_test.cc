// Installing, replacing and removing packages.
#include "workstation/packages.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using workstation::findPackageOfApplication;
using workstation::listPackages;
using workstation::Package;
using workstation::removePackage;

constexpr const char* kRegistry = "/opt/usr/share/quillon/packages.db";

class PackagesTest : public InsideDeviceTest {
 protected:
  static std::vector<Package> all() { return listPackages().value(); }
  static std::string failureOf(const Expected<Package>& result) {
    return result ? "installed" : result.error().what;
  }
  static std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

TEST_F(PackagesTest, AMissingRegistryIsEmptyAndReadingDoesNotCreateIt) {
  EXPECT_THAT(all(), IsEmpty());
  EXPECT_FALSE(findPackageOfApplication("a").value());
  EXPECT_FALSE(fs::exists("/opt/usr/share/quillon"));
}

TEST_F(PackagesTest, InstallsFilesAndRecord) {
  SamplePackage sample("p", "3");
  sample.file("bin/a.dll", "bytes").file("deep/er/b", "");
  chmod((sample.folder() / "files/bin/a.dll").c_str(), 0755);
  fs::create_symlink("a.dll", sample.folder() / "files/bin/link");
  sample.add("privileges = ['/x', '/y']");
  sample.add("[[application]]\nid = 'p.main'\nexec = 'bin/a.dll'\nmetadata = { '/k' = 'v' }");
  sample.add("[[application]]\nid = 'p.service'\nexec = 'bin/a.dll'\ncomponent = 'service'");
  const auto installed = sample.install();
  ASSERT_TRUE(installed) << installed.error().what;
  EXPECT_EQ(contentsOf("/opt/usr/apps/p/bin/a.dll"), "bytes");
  EXPECT_TRUE(fs::exists("/opt/usr/apps/p/deep/er/b"));
  EXPECT_EQ(fs::read_symlink("/opt/usr/apps/p/bin/link"), "a.dll");
  EXPECT_EQ(fs::status("/opt/usr/apps/p/bin/a.dll").permissions(), fs::perms(0755));

  const auto found = findPackageOfApplication("p.service").value();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->id, "p");
  EXPECT_EQ(found->version, "3");
  EXPECT_EQ(found->rootPath, "/opt/usr/apps/p");
  EXPECT_EQ(found->privileges, installed->privileges);
  ASSERT_THAT(found->applications, SizeIs(2));
  EXPECT_EQ(found->applications[0].id, "p.main");
  EXPECT_EQ(found->applications[0].exec, "/opt/usr/apps/p/bin/a.dll");
  EXPECT_EQ(found->applications[0].metadata, installed->applications[0].metadata);
  EXPECT_TRUE(found->applications[1].service);
}

TEST_F(PackagesTest, ReplacingLeavesNothingOfTheOldPackage) {
  ASSERT_TRUE(SamplePackage("p", "1")
                  .file("old", "")
                  .add("[[application]]\nid='gone'\nexec='x'")
                  .install());
  ASSERT_TRUE(SamplePackage("p", "2").file("new", "").install());
  ASSERT_THAT(all(), SizeIs(1));
  EXPECT_EQ(all()[0].version, "2");
  EXPECT_FALSE(findPackageOfApplication("gone").value());
  EXPECT_THAT(namesIn("/opt/usr/apps/p"), ::testing::ElementsAre("new"));
  EXPECT_THAT(namesIn("/opt/usr/apps"), ::testing::ElementsAre("p"));
}

TEST_F(PackagesTest, ReplacingAtAnotherRootRemovesTheOldRoot) {
  ASSERT_TRUE(SamplePackage("p").file("f", "").install());
  ASSERT_TRUE(SamplePackage("p").file("f", "").add("root = '/opt/share/p'").install());
  EXPECT_FALSE(fs::exists("/opt/usr/apps/p"));
  EXPECT_TRUE(fs::exists("/opt/share/p/f"));
}

TEST_F(PackagesTest, RemovesFilesAndRecord) {
  ASSERT_TRUE(SamplePackage("p").file("f", "").install());
  EXPECT_TRUE(removePackage("p").value());
  EXPECT_THAT(all(), IsEmpty());
  EXPECT_THAT(namesIn("/opt/usr/apps"), IsEmpty());
  EXPECT_FALSE(removePackage("p").value());
}

TEST_F(PackagesTest, RemovesAPackageWhoseFilesAreGone) {
  ASSERT_TRUE(SamplePackage("p").install());
  fs::remove_all("/opt/usr/apps/p");
  EXPECT_TRUE(removePackage("p").value());
}

TEST_F(PackagesTest, DoesNotTouchFoldersOfOthers) {
  writeFile("/opt/usr/apps/p/precious", "data");
  EXPECT_EQ(failureOf(SamplePackage("p").file("f", "").install()),
            "'/opt/usr/apps/p' exists already and belongs to no package");
  EXPECT_EQ(contentsOf("/opt/usr/apps/p/precious"), "data");
  EXPECT_THAT(all(), IsEmpty());
}

TEST_F(PackagesTest, AcceptsAnEmptyFolderAsItsRoot) {
  fs::create_directories("/opt/usr/apps/p");
  EXPECT_EQ(failureOf(SamplePackage("p").file("f", "").install()), "installed");
  EXPECT_TRUE(fs::exists("/opt/usr/apps/p/f"));
}

TEST_F(PackagesTest, PackagesMustNotOverlap) {
  ASSERT_TRUE(SamplePackage("p").install());
  ASSERT_TRUE(SamplePackage("r").add("root='/opt/share/a/b'").install());
  const auto overlap = [](const std::string& root, const std::string& other,
                          const std::string& package) {
    EXPECT_EQ(failureOf(SamplePackage("q").add("root='" + root + "'").install()),
              "the root '" + root + "' of package 'q' overlaps '" + other +
                  "', the root of the installed package '" + package + "'");
  };
  overlap("/opt/usr/apps/p", "/opt/usr/apps/p", "p");
  overlap("/opt/usr/apps/p/in", "/opt/usr/apps/p", "p");
  overlap("/opt/share/a", "/opt/share/a/b", "r");
  EXPECT_EQ(
      failureOf(SamplePackage("p").add("root='/opt/usr/apps/p/in'").install()),
      "the root '/opt/usr/apps/p/in' of package 'p' overlaps '/opt/usr/apps/p', the root of the "
      "installed package 'p'");
  EXPECT_EQ(failureOf(SamplePackage("p2").install()), "installed");
}

TEST_F(PackagesTest, PackagesMustNotContainTheSameApplication) {
  ASSERT_TRUE(SamplePackage("p").add("[[application]]\nid='a'\nexec='x'").install());
  EXPECT_EQ(failureOf(SamplePackage("q").add("[[application]]\nid='a'\nexec='x'").install()),
            "application 'a' is part of the installed package 'p'");
  EXPECT_FALSE(fs::exists("/opt/usr/apps/q"));
}

TEST_F(PackagesTest, AFailedCopyChangesNothing) {
  ASSERT_TRUE(SamplePackage("p", "1").file("f", "old").install());
  SamplePackage broken("p", "2");
  broken.file("f", "new");
  ASSERT_EQ(mkfifo((broken.folder() / "files/pipe").c_str(), 0600), 0);
  EXPECT_THAT(failureOf(broken.install()), HasSubstr("cannot copy '"));
  EXPECT_EQ(all()[0].version, "1");
  EXPECT_EQ(contentsOf("/opt/usr/apps/p/f"), "old");
  EXPECT_THAT(namesIn("/opt/usr/apps"), ::testing::ElementsAre("p"));
}

TEST_F(PackagesTest, DoesNotCopyAPackageIntoItself) {
  SamplePackage sample("p");
  sample.add("files = '/opt/usr'").add("root = '/opt/usr/apps/p'");
  EXPECT_THAT(failureOf(sample.install()), HasSubstr("would be copied into its own files"));
  EXPECT_THAT(namesIn("/opt/usr/apps"), IsEmpty());
}

TEST_F(PackagesTest, AUsersPackageHidesThePackageForAll) {
  const uid_t self = geteuid();
  if (self == 0) {
    EXPECT_EQ(inChild([] {
                // Packages of root are for all users, so this needs another user.
                fs::create_directories("/opt/usr/share/quillon");
                fs::permissions("/opt/usr/share/quillon", fs::perms::all);
                EXPECT_TRUE(SamplePackage("p", "all").install());
                EXPECT_TRUE(SamplePackage("p", "own")
                                .add("root='/opt/usr/apps/own'")
                                .add("[[application]]\nid='a'\nexec='x'")
                                .install(1234));
                EXPECT_FALSE(findPackageOfApplication("a").value());
                if (setresuid(1234, 1234, 1234) != 0) {
                  return 77;
                }
                return findPackageOfApplication("a").value()->version == "own" ? 0 : 1;
              }),
              0);
    return;
  }
  ASSERT_TRUE(SamplePackage("p", "all").add("[[application]]\nid='a'\nexec='x'").install());
  ASSERT_TRUE(SamplePackage("p", "own")
                  .add("root='/opt/usr/apps/own'")
                  .add("[[application]]\nid='a'\nexec='x'")
                  .install(self));
  EXPECT_EQ(findPackageOfApplication("a").value()->version, "own");
  EXPECT_TRUE(removePackage("p", self).value());
  EXPECT_EQ(findPackageOfApplication("a").value()->version, "all");
}

// The lookup cache is valid only as long as the registry does not change.
TEST_F(PackagesTest, LookupsSeeAnInstallByAnotherProcess) {
  const auto versionOfA = [] {
    const auto package = findPackageOfApplication("a");
    return package && *package ? (*package)->version : std::string("none");
  };
  const auto inAnotherProcess = [](const char* version) {
    return inChild([&] {
      SamplePackage package("p", version);
      return package.add("[[application]]\nid='a'\nexec='x'").install() ? 0 : 1;
    });
  };
  const auto asLongAsAnswersStay = [] { usleep(150'000); };
  EXPECT_EQ(versionOfA(), "none");
  for (const char* version : {"1", "2", "3"}) {
    ASSERT_EQ(inAnotherProcess(version), 0);
    EXPECT_EQ(versionOfA(), version);
    asLongAsAnswersStay();
    EXPECT_EQ(versionOfA(), version);
    EXPECT_EQ(versionOfA(), version);
  }
  ASSERT_EQ(inChild([] { return removePackage("p").value() ? 0 : 1; }), 0);
  EXPECT_EQ(versionOfA(), "none");
}

TEST_F(PackagesTest, ManyProcessesInstallListAndRegisterAtOnce) {
  constexpr int kProcesses = 8;
  constexpr int kRounds = 5;
  const auto work = [](int number) {
    const std::string id = "p" + std::to_string(number);
    for (int round = 0; round < kRounds; ++round) {
      const std::string version = std::to_string(round);
      if (!SamplePackage(id, version).file("version", version).install()) {
        return 1;
      }
      if (!SamplePackage("shared", version).file("version", version).install()) {
        return 2;
      }
      if (!listPackages() || !workstation::registerProcess(getpid(), id)) {
        return 3;
      }
    }
    return 0;
  };
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(fork());
    if (children.back() == 0) {
      _exit(work(i));
    }
  }
  for (const pid_t child : children) {
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_THAT(all(), SizeIs(kProcesses + 1));
  for (const Package& package : all()) {
    EXPECT_EQ(contentsOf(package.rootPath + "/version"), package.version) << package.id;
  }
  EXPECT_THAT(namesIn("/opt/usr/apps"), SizeIs(kProcesses + 1));
}

TEST_F(PackagesTest, ReportsADamagedRegistry) {
  writeFile(kRegistry, std::string(4096, 'x'));
  const auto list = listPackages();
  ASSERT_FALSE(list);
  EXPECT_EQ(list.error().what,
            "the package registry '/opt/usr/share/quillon/packages.db' failed: "
            "file is not a database");
  EXPECT_THAT(
      list.error().remedy,
      ::testing::AllOf(::testing::StartsWith("remove it and install the packages again: rm /"),
                       ::testing::EndsWith(kRegistry)));
  EXPECT_FALSE(SamplePackage("p").install());
}

TEST_F(PackagesTest, AnEmptyRegistryFileIsAnEmptyRegistry) {
  writeFile(kRegistry, "");
  EXPECT_THAT(all(), IsEmpty());
  EXPECT_TRUE(SamplePackage("p").install());
}

}  // namespace
}  // namespace quillon::test
