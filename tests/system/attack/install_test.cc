// Installing and removing packages while somebody changes their files, and without space.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include "tests/system/torture/traced_process.h"
#include "tests/unit/platform/device_main.h"
#include "tests/unit/platform/sample_package.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using torture::Follower;
using torture::SystemCall;
using torture::Verdict;
using workstation::listPackages;
using workstation::removePackage;

constexpr const char* kRoot = "/opt/usr/apps/p";

std::string failureOf(const Expected<workstation::Package>& result) {
  return result ? "installed" : result.error().what;
}

// The contents of all regular files below a folder. Follows no links.
std::string allContents(const fs::path& folder) {
  std::string all;
  std::error_code missing;
  for (const auto& entry : fs::recursive_directory_iterator(folder, missing)) {
    if (fs::is_regular_file(entry.symlink_status())) {
      all += contentsOf(entry.path());
    }
  }
  return all;
}

class SwappedSource : public InsideDeviceTest {
 protected:
  // Installs the package again and again. At the first, second, ... system call of the
  // installation, another user replaces the file or folder `name` of the package by a link to the
  // secret one.
  void swapAtEachCall(const std::string& name, const fs::path& secret) {
    bool swapped = true;
    size_t index = 1;
    for (; swapped && !HasFailure(); ++index) {
      InsideDeviceTest::SetUp();
      SamplePackage sample("p");
      sample.file("folder/inner/file", "public").file("last", "public");
      const std::string manifest = sample.manifest();
      swapped = false;
      const auto at = [&](const SystemCall& call) {
        if (call.index == index) {
          swapped = true;
          fs::rename(sample.folder() / name, sample.folder() / "aside");
          fs::create_symlink(secret, sample.folder() / name);
        }
        return Verdict::run();
      };
      const auto install = [&] {
        [[maybe_unused]] auto done = workstation::installPackage(manifest);
      };
      const auto result = torture::follow(install, Follower{at, nullptr});
      if (!result.allowed) {
        QUILLON_SKIP(result.reason);
      }
      EXPECT_EQ(result.ending, "");
      EXPECT_THAT(allContents("/opt/usr/apps"), ::testing::Not(HasSubstr("secret")))
          << "swapped at call " << index;
    }
    EXPECT_GT(index, 50U) << "the installation made no calls worth the name";
  }

  TemporaryDirectory secrets_;
};

TEST_F(SwappedSource, AFolderInsideIsNotReadThroughALink) {
  writeFile(secrets_.path() / "inner/file", "secret");
  swapAtEachCall("files/folder", secrets_.path());
}

TEST_F(SwappedSource, AFileIsNotReadThroughALink) {
  writeFile(secrets_.path() / "file", "secret");
  swapAtEachCall("files/last", secrets_.path() / "file");
}

TEST_F(SwappedSource, TheWholeFolderIsNotReadThroughALink) {
  writeFile(secrets_.path() / "folder/inner/file", "secret");
  writeFile(secrets_.path() / "last", "secret");
  swapAtEachCall("files", secrets_.path());
}

class PackageFiles : public InsideDeviceTest {};

TEST_F(PackageFiles, AreNotReadThroughALinkInTheManifest) {
  const TemporaryDirectory secrets;
  writeFile(secrets.path() / "files/file", "secret");
  SamplePackage sample("p");
  fs::create_symlink(secrets.path(), sample.folder() / "link");
  EXPECT_THAT(failureOf(sample.add("files = 'link/files'").install()),
              HasSubstr("key 'package.files' contains a symbolic link"));
  EXPECT_FALSE(fs::exists(kRoot));
}

TEST_F(PackageFiles, GetNoSetUserIdBit) {
  SamplePackage sample("p");
  sample.file("bin/tool", "");
  ASSERT_EQ(chmod((sample.folder() / "files/bin/tool").c_str(), 06755), 0);
  ASSERT_EQ(chmod((sample.folder() / "files/bin").c_str(), 03755), 0);
  ASSERT_EQ(failureOf(sample.install()), "installed");
  struct stat status {};
  ASSERT_EQ(stat("/opt/usr/apps/p/bin/tool", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
  ASSERT_EQ(stat("/opt/usr/apps/p/bin", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST_F(PackageFiles, MayBeInFoldersThatTheirOwnerMustNotWriteTo) {
  SamplePackage sample("p");
  sample.file("folder/file", "text");
  ASSERT_EQ(chmod((sample.folder() / "files/folder").c_str(), 0555), 0);
  EXPECT_EQ(failureOf(sample.install()), "installed");
  EXPECT_EQ(contentsOf("/opt/usr/apps/p/folder/file"), "text");
  ASSERT_EQ(chmod((sample.folder() / "files/folder").c_str(), 0755), 0);
  ASSERT_EQ(chmod("/opt/usr/apps/p/folder", 0555), 0);
  EXPECT_TRUE(removePackage("p").value());
  EXPECT_FALSE(fs::exists(kRoot));
}

// Makes folders inside each other: longer than a path can be.
void makeDeepFolder(const std::string& top, int depth) {
  int folder = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < depth; ++i) {
    ASSERT_EQ(mkdirat(folder, "d", 0755), 0);
    const int next = openat(folder, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(folder);
    folder = next;
  }
  close(openat(folder, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  close(folder);
}

TEST_F(PackageFiles, AreRemovedFromAnyDepth) {
  constexpr int kDepth = 3000;
  ASSERT_EQ(failureOf(SamplePackage("p").install()), "installed");
  makeDeepFolder(kRoot, kDepth);
  EXPECT_EQ(inChild([] {
              const rlimit few{64, 64};
              setrlimit(RLIMIT_NOFILE, &few);
              return removePackage("p").value_or(false) ? 0 : 1;
            }),
            0);
  EXPECT_THAT(listPackages().value(), IsEmpty());
  EXPECT_TRUE(fs::is_empty("/opt/usr/apps"));
}

TEST_F(PackageFiles, OfAnyDepthAreRefused) {
  SamplePackage sample("p");
  sample.file("f", "");
  makeDeepFolder(sample.folder() / "files", 200);
  EXPECT_THAT(failureOf(sample.install()), HasSubstr("is more than 100 folders deep"));
}

// Process ids repeat. In a container every installation may have the same one.
TEST_F(PackageFiles, AreNotPutInAFolderOfAnotherProcess) {
  EXPECT_EQ(inChild([] {
              constexpr int kFolders = 300;  // more than this program has used
              const auto left = [](int number) {
                return "/opt/usr/apps/.quillon-" + std::to_string(getpid()) + "-" +
                       std::to_string(number);
              };
              for (int number = 1; number <= kFolders; ++number) {
                writeFile(left(number) + "/file", "");
              }
              SamplePackage sample("p");
              if (!sample.file("f", "").install() || !removePackage("p").value_or(false)) {
                return 1;
              }
              for (int number = 1; number <= kFolders; ++number) {
                if (!fs::exists(left(number) + "/file")) {
                  return 2;
                }
              }
              return 0;
            }),
            0);
}

class PlantedLink : public InsideDeviceTest, public ::testing::WithParamInterface<const char*> {
 protected:
  // Installs a package with a link to `target` in place of the platform's file.
  static void installWithLinkTo(const std::string& target) {
    const std::string link = std::string("/opt/usr/share/quillon/") + GetParam();
    fs::remove(link);
    fs::create_symlink(target, link);
    [[maybe_unused]] const auto installed = SamplePackage("p").install();
    fs::remove(link);
  }
};

TEST_P(PlantedLink, IsNotFollowed) {
  ASSERT_EQ(failureOf(SamplePackage("p").install()), "installed");
  const TemporaryDirectory victims;
  writeFile(victims.path() / "file", "precious");
  installWithLinkTo(victims.path() / "file");
  EXPECT_EQ(contentsOf(victims.path() / "file"), "precious");
  installWithLinkTo(victims.path() / "missing");
  EXPECT_FALSE(fs::exists(victims.path() / "missing"));
  EXPECT_EQ(failureOf(SamplePackage("p").install()), "installed");
}

INSTANTIATE_TEST_SUITE_P(InPlaceOf, PlantedLink,
                         ::testing::Values("packages.db.new", "packages.reserve", "packages.lock",
                                           "packages.db-journal"));

// A link on the way to the root would decide where the package's files go.
TEST_F(PackageFiles, AreNotPutBehindALink) {
  const TemporaryDirectory victims;
  fs::create_directory_symlink(victims.path(), "/opt/usr/apps/link");
  SamplePackage sample("p");
  EXPECT_EQ(failureOf(sample.file("f", "").add("root = '/opt/usr/apps/link/p'").install()),
            "cannot make the folder '/opt/usr/apps/link': Not a directory");
  EXPECT_TRUE(fs::is_empty(victims.path()));
}

// The link may have been put there after the installation.
TEST_F(PackageFiles, BehindALinkAreNotReportedAsRemoved) {
  const TemporaryDirectory elsewhere;
  SamplePackage sample("p");
  ASSERT_EQ(failureOf(sample.file("f", "").add("root = '/opt/usr/apps/folder/p'").install()),
            "installed");
  fs::rename("/opt/usr/apps/folder", "/opt/usr/apps/moved");
  fs::create_directory_symlink("moved", "/opt/usr/apps/folder");
  const auto removed = removePackage("p");
  ASSERT_FALSE(removed);
  EXPECT_EQ(removed.error().what, "cannot open the folder '/opt/usr/apps/folder': Not a directory");
  EXPECT_EQ(removed.error().remedy, "replace the symbolic link on its path by the folder");
  EXPECT_TRUE(fs::exists("/opt/usr/apps/moved/p/f"));
  fs::remove("/opt/usr/apps/folder");
  fs::rename("/opt/usr/apps/moved", "/opt/usr/apps/folder");
  EXPECT_TRUE(removePackage("p").value());
  EXPECT_FALSE(fs::exists("/opt/usr/apps/folder/p"));
}

// An application may take the rights away from the folders of its package.
TEST_F(PackageFiles, InFoldersWithoutRightsAreRemoved) {
  constexpr uid_t kUser = 1234;
  const auto removes = [] {
    if (!SamplePackage("p").file("a/b/c/file", "").file("x/y/file", "").install()) {
      return 1;
    }
    for (const char* folder : {"a/b/c", "a/b", "a"}) {
      chmod((std::string(kRoot) + "/" + folder).c_str(), 0);
    }
    for (const char* folder : {"x/y", "x", ""}) {
      chmod((std::string(kRoot) + "/" + folder).c_str(), 0555);
    }
    return removePackage("p").value_or(false) && fs::is_empty("/opt/usr/apps") ? 0 : 2;
  };
  if (geteuid() != 0) {
    EXPECT_EQ(removes(), 0);
    return;
  }
  fs::create_directories("/opt/usr/share/quillon");
  for (const char* folder : {"/opt/usr/apps", "/opt/usr/share/quillon"}) {
    ASSERT_EQ(chown(folder, kUser, kUser), 0);
  }
  EXPECT_EQ(inChild([&] { return setresuid(kUser, kUser, kUser) == 0 ? removes() : 77; }), 0);
  ASSERT_EQ(chown("/opt/usr/apps", 0, 0), 0);
}

// A change that cannot be undone concerns only its own package.
class UnfinishedChange : public InsideDeviceTest {
 protected:
  static void expectThatOthersCanBeInstalled() {
    EXPECT_EQ(failureOf(SamplePackage("other").file("f", "").install()), "installed");
    EXPECT_TRUE(removePackage("other").value_or(false));
  }
};

TEST_F(UnfinishedChange, WhoseFolderHasVanishedBlocksNobody) {
  bool vanished = true;
  size_t index = 1;
  for (; vanished && !HasFailure(); ++index) {
    InsideDeviceTest::SetUp();
    SamplePackage sample("p");
    const std::string manifest = sample.file("f", "").manifest();
    vanished = false;
    const auto at = [&](const SystemCall& call) {
      if (call.index != index) {
        return Verdict::run();
      }
      vanished = true;
      for (const auto& entry : fs::directory_iterator("/opt/usr/apps")) {
        fs::remove_all(entry);
      }
      return Verdict::run();
    };
    const auto install = [&] {
      [[maybe_unused]] auto done = workstation::installPackage(manifest);
    };
    const auto result = torture::follow(install, Follower{at, nullptr});
    if (!result.allowed) {
      QUILLON_SKIP(result.reason);
    }
    expectThatOthersCanBeInstalled();
    if (HasFailure()) {
      FAIL() << "removed at call " << index;
    }
  }
  EXPECT_GT(index, 50U) << "the installation made no calls worth the name";
}

TEST_F(UnfinishedChange, WhosePlaceIsTakenBlocksNobody) {
  ASSERT_EQ(failureOf(SamplePackage("p", "1").file("f", "old").install()), "installed");
  bool moved = false;
  const auto afterTheMove = [&](const SystemCall& call) {
    if (moved) {
      return Verdict::kill();
    }
    moved = call.number == SYS_renameat || call.number == SYS_renameat2;
    return Verdict::run();
  };
  const auto remove = [] { [[maybe_unused]] auto done = removePackage("p"); };
  const auto result = torture::follow(remove, Follower{afterTheMove, nullptr});
  if (!result.allowed) {
    QUILLON_SKIP(result.reason);
  }
  ASSERT_TRUE(result.killed);
  ASSERT_FALSE(fs::exists(kRoot));
  writeFile(std::string(kRoot) + "/precious", "data");
  expectThatOthersCanBeInstalled();
  EXPECT_EQ(contentsOf(std::string(kRoot) + "/precious"), "data");
  // The next version replaces both folders, and its removal brings neither back.
  EXPECT_EQ(failureOf(SamplePackage("p", "2").file("f", "new").install()), "installed");
  EXPECT_EQ(contentsOf(std::string(kRoot) + "/f"), "new");
  EXPECT_TRUE(removePackage("p").value_or(false));
  expectThatOthersCanBeInstalled();
  EXPECT_TRUE(fs::is_empty("/opt/usr/apps"));
}

// Tests with a small file system at /opt/usr.
class SmallDisk : public InsideDeviceTest {
 protected:
  static constexpr int kNoMount = 77;

  // Runs `body` in a child process that has the small file system.
  static void onSmallDisk(const std::function<int()>& body) {
    const int status = inChild([&] {
      if (unshare(CLONE_NEWNS) != 0 ||
          mount("none", "/opt/usr", "tmpfs", 0, "size=2m,mode=0755") != 0) {
        return kNoMount;
      }
      fs::create_directories("/opt/usr/apps");
      fs::create_directories("/opt/usr/share/quillon");
      return body();
    });
    if (status == kNoMount) {
      QUILLON_SKIP("this machine does not allow a tmpfs of its own");
    }
    EXPECT_EQ(status, 0) << "the number of the step that failed";
  }

  // Writes until the disk is full to the last block.
  static void fillDisk() {
    const int file = open("/opt/usr/filler", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const std::string bytes(4096, 'x');
    while (write(file, bytes.data(), bytes.size()) > 0) {
    }
    close(file);
  }

  static Expected<workstation::Package> install(const std::string& id, size_t size) {
    SamplePackage sample(id);
    return sample.file("file", std::string(size, 'p')).install();
  }
};

TEST_F(SmallDisk, RemovesPackagesWhenItIsFull) {
  onSmallDisk([] {
    for (const char* id : {"p", "q"}) {
      if (!install(id, 1)) {
        return 1;
      }
    }
    for (const char* id : {"p", "q"}) {
      fillDisk();
      if (const auto removed = removePackage(id); !removed || !*removed) {
        return 2;
      }
      if (fs::exists(std::string("/opt/usr/apps/") + id)) {
        return 3;
      }
    }
    return listPackages().value().empty() ? 0 : 4;
  });
}

TEST_F(SmallDisk, KeepsItsReserveWhenThatCannotGrow) {
  onSmallDisk([] {
    constexpr off_t kSize = 64 << 10;
    const char* const reserve = "/opt/usr/share/quillon/packages.reserve";
    if (!install("p", 1) || truncate(reserve, kSize) != 0) {
      return 1;
    }
    fillDisk();
    if (install("q", 1)) {
      return 2;
    }
    struct stat status {};
    return stat(reserve, &status) == 0 && status.st_blocks * 512 >= kSize ? 0 : 3;
  });
}

TEST_F(SmallDisk, RegistersProcessesWhenItIsFull) {
  onSmallDisk([] {
    if (!install("p", 1) || !workstation::registerProcess(getpid(), "p")) {
      return 1;
    }
    fillDisk();
    return inChild([] { return workstation::registerProcess(getpid(), "p") ? 0 : 2; });
  });
}

TEST_F(SmallDisk, ReportsThatItIsFull) {
  onSmallDisk([] {
    const auto isReported = [](const Expected<workstation::Package>& result) {
      return !result && result.error().what.find("No space left on device") != std::string::npos;
    };
    if (!install("p", 1)) {
      return 1;
    }
    if (!isReported(install("q", 3 << 20))) {  // larger than the free space
      return 2;
    }
    SamplePackage several("q");
    for (const char* name : {"a", "b", "c", "d"}) {  // each of them is smaller
      several.file(name, std::string(1 << 20, 'q'));
    }
    if (!isReported(several.install())) {
      return 3;
    }
    fillDisk();
    if (!isReported(install("q", 1))) {
      return 4;
    }
    const auto entries = fs::directory_iterator("/opt/usr/apps");
    const bool isAlone = std::distance(entries, fs::directory_iterator()) == 1;
    const auto packages = listPackages();
    return isAlone && packages && packages->size() == 1 && contentsOf("/opt/usr/apps/p/file") == "p"
               ? 0
               : 5;
  });
}

// The package's file needs a few bytes of the disk, but its copy would fill any disk with zeros.
TEST_F(SmallDisk, IsNotFilledByASparseFile) {
  onSmallDisk([] {
    SamplePackage sample("p");
    sample.file("sparse", "");
    constexpr off_t kSize = off_t{8} << 40;
    if (truncate((sample.folder() / "files/sparse").c_str(), kSize) != 0) {
      return 1;
    }
    const auto installed = sample.install();
    return !installed && installed.error().what.find("No space left on device") != std::string::npos
               ? 0
               : 2;
  });
}

// A folder that cannot be deleted, here because of a mount point in it, is not a reason to refuse
// other packages.
TEST_F(SmallDisk, AFolderThatCannotBeRemovedBlocksNobody) {
  onSmallDisk([] {
    if (!install("p", 1)) {
      return 1;
    }
    fs::create_directories("/opt/usr/apps/p/mounted");
    if (mount("none", "/opt/usr/apps/p/mounted", "tmpfs", 0, "size=64k") != 0) {
      return kNoMount;
    }
    if (!removePackage("p").value_or(false)) {
      return 2;
    }
    if (!install("q", 1) || !install("p", 1)) {
      return 3;
    }
    return contentsOf("/opt/usr/apps/p/file") == "p" ? 0 : 4;
  });
}

}  // namespace
}  // namespace quillon::test
