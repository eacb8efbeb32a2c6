// The package registry after interrupted installations, and with other files in its place. Launches
// must work, or end at once with one line that names the cause.
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <set>

#include "quillon/base/exit_status.h"
#include "quillon/device/device_root.h"
#include "tests/system/commands/command_fixture.h"
#include "tests/system/torture/traced_process.h"
#include "workstation/packages.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using torture::Follower;
using torture::SystemCall;
using torture::Verdict;

constexpr int kTimedOut = 124;  // see timeout(1)

class RegistryAttack : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    writeFile(manifests() + "/out/clock.dll", "not an assembly");
    write("1");
    ASSERT_EQ(quillon({"package", "install", manifest()}).status, 0);
  }

  // Writes a manifest with so many applications that the registry needs many pages.
  void write(const std::string& version) const {
    std::string text = "[package]\nid = 'clock'\nversion = '" + version + "'\nfiles = 'out'\n";
    for (int i = 0; i < kApplications; ++i) {
      text += "[[application]]\nid = 'clock." + std::to_string(i) + "'\nexec = 'clock.dll'\n" +
              "metadata = { '/text' = '" + std::string(200, version.front()) + "' }\n";
    }
    writeFile(manifest(), text);
  }

  [[nodiscard]] std::string manifests() const { return (folder() / "manifests").string(); }
  [[nodiscard]] std::string manifest() const { return manifests() + "/clock.toml"; }
  [[nodiscard]] std::string inData(const std::string& name) const {
    return device() + "/opt/usr/share/quillon/" + name;
  }

  // Runs the command. It must not hang.
  Finished quillonInTime(std::vector<std::string> arguments) {
    std::vector<std::string> command = {"/usr/bin/timeout", "--kill-after=5", "30"};
    arguments = commandOf(std::move(arguments));
    command.insert(command.end(), arguments.begin(), arguments.end());
    Finished finished = run(command, {{"QUILLON_DEVICE", device()}});
    EXPECT_NE(finished.status, kTimedOut);
    return finished;
  }

  [[nodiscard]] std::vector<std::string> planOfLaunch() const {
    return {"launch", "--device", device(), "--direct", "--plan", "clock.0"};
  }

  // A launch finds the application and its files.
  void expectLaunchable() {
    const Finished launched = quillonInTime(planOfLaunch());
    EXPECT_EQ(launched.status, kNotExecutable) << launched.err;
    EXPECT_THAT(launched.err, HasSubstr("it is not an assembly"));
    EXPECT_THAT(launched.out, HasSubstr("package          clock"));
    EXPECT_THAT(quillonInTime({"package", "list"}).out, StartsWith("clock "));
  }

  void expectFailureThatNames(const std::string& text) {
    const std::vector<std::string> list = {"package", "list"};
    const std::vector<std::string> remove = {"package", "remove", "clock"};
    for (const auto& command : {planOfLaunch(), list, remove}) {
      const Finished finished = quillonInTime(command);
      EXPECT_EQ(finished.status, kServiceFailed) << command[1];
      EXPECT_THAT(finished.err, AllOf(StartsWith("quillon: "), HasSubstr(inside("packages.db")),
                                      HasSubstr(text)));
      EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    }
  }

  static std::string inside(const std::string& name) { return "/opt/usr/share/quillon/" + name; }

 private:
  static constexpr int kApplications = 40;
};

// The calls by which an installation changes files.
bool changesFiles(const SystemCall& call) {
  static const std::set<long> calls = {
      SYS_write,     SYS_pwrite64, SYS_fsync,    SYS_fdatasync, SYS_ftruncate, SYS_fallocate,
      SYS_renameat2, SYS_renameat, SYS_unlinkat, SYS_mkdirat,   SYS_fchmod,
#ifdef SYS_rename
      SYS_rename,    SYS_unlink,   SYS_mkdir,
#endif
  };
  return calls.contains(static_cast<long>(call.number));
}

TEST_F(RegistryAttack, AKilledInstallationStopsNoLaunch) {
  write("2");
  bool killed = true;
  size_t index = 1;
  for (; killed && !HasFailure(); ++index) {
    size_t changes = 0;
    const auto at = [&](const SystemCall& call) {
      changes += changesFiles(call) ? 1 : 0;
      return changes == index ? Verdict::kill() : Verdict::run();
    };
    const auto install = [&] {
      const device::EnterOptions options{.visible = {manifests()}, .writable = {}};
      const bool done = device::enter(device(), options) && workstation::installPackage(manifest());
      _exit(done ? 0 : 1);
    };
    const auto result = torture::follow(install, Follower{at, nullptr});
    if (!result.allowed) {
      QUILLON_SKIP(result.reason);
    }
    killed = result.killed;
    EXPECT_EQ(result.ending, "");
    expectLaunchable();
    if (HasFailure()) {
      FAIL() << "killed at change " << index;
    }
  }
  EXPECT_GT(index, 20U) << "the installation made no changes worth the name";
}

// Changes the registry in place, as earlier versions did, and dies in the transaction.
void interruptATransaction(const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    sqlite3* database = nullptr;
    // A small cache: SQLite writes changed pages to the file before the transaction ends.
    const bool changed = sqlite3_open(path.c_str(), &database) == SQLITE_OK &&
                         sqlite3_exec(database,
                                      "PRAGMA cache_size = 1; BEGIN; DELETE FROM metadata;"
                                      "DELETE FROM application; DELETE FROM package;",
                                      nullptr, nullptr, nullptr) == SQLITE_OK;
    kill(getpid(), changed ? SIGKILL : SIGABRT);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
  ASSERT_TRUE(fs::exists(path + "-journal"));
}

TEST_F(RegistryAttack, ALaunchRecoversTheJournalOfAnEarlierVersion) {
  interruptATransaction(inData("packages.db"));
  ASSERT_FALSE(HasFatalFailure());
  expectLaunchable();
  EXPECT_FALSE(fs::exists(inData("packages.db-journal")));
}

TEST_F(RegistryAttack, AnInstallationRecoversTheJournalOfAnEarlierVersion) {
  interruptATransaction(inData("packages.db"));
  ASSERT_FALSE(HasFatalFailure());
  writeFile(manifests() + "/other.toml", "[package]\nid = 'other'\nversion = '1'\n");
  EXPECT_EQ(quillonInTime({"package", "install", manifests() + "/other.toml"}).status, 0);
  expectLaunchable();
}

// The remedy of a damaged registry: its file is removed, but not the journal beside it.
TEST_F(RegistryAttack, AJournalWithoutItsRegistryDoesNotDamageTheNextOne) {
  interruptATransaction(inData("packages.db"));
  ASSERT_FALSE(HasFatalFailure());
  fs::remove(inData("packages.db"));
  fs::remove_all(device() + "/opt/usr/apps/clock");
  write("2");
  ASSERT_EQ(quillonInTime({"package", "install", manifest()}).status, 0);
  expectLaunchable();
  EXPECT_THAT(quillonInTime({"package", "list"}).out, StartsWith("clock 2  "));
  EXPECT_FALSE(fs::exists(inData("packages.db-journal")));
}

TEST_F(RegistryAttack, AFifoInPlaceOfTheJournalIsIgnored) {
  ASSERT_EQ(mkfifo(inData("packages.db-journal").c_str(), 0666), 0);
  expectLaunchable();
  EXPECT_EQ(quillonInTime({"package", "install", manifest()}).status, 0);
  expectLaunchable();
}

// Every user of the device root reads the registry and the packages' files.
TEST_F(RegistryAttack, TheModeOfFilesDoesNotDependOnTheUmask) {
  writeFile(manifests() + "/out/folder/file", "");
  const mode_t before = umask(077);
  EXPECT_EQ(quillonInTime({"package", "install", manifest()}).status, 0);
  umask(before);
  const auto modeOf = [](const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  };
  EXPECT_EQ(modeOf(inData("packages.db")), 0644U);
  EXPECT_EQ(modeOf(device() + "/opt/usr/apps/clock"), 0755U);
  EXPECT_EQ(modeOf(device() + "/opt/usr/apps/clock/folder"), 0755U);
}

TEST_F(RegistryAttack, AFifoIsReported) {
  fs::remove(inData("packages.db"));
  ASSERT_EQ(mkfifo(inData("packages.db").c_str(), 0666), 0);
  expectFailureThatNames("not a regular file");
}

TEST_F(RegistryAttack, ALinkToADeviceIsReported) {
  fs::remove(inData("packages.db"));
  fs::create_symlink("/dev/zero", inData("packages.db"));
  expectFailureThatNames("not a regular file");
}

TEST_F(RegistryAttack, AnEndlessFileIsReported) {
  constexpr off_t kSize = off_t{8} << 40;
  ASSERT_EQ(truncate(inData("packages.db").c_str(), kSize), 0);
  expectFailureThatNames("larger than 64 MiB");
}

TEST_F(RegistryAttack, AFolderIsReported) {
  fs::remove(inData("packages.db"));
  fs::create_directory(inData("packages.db"));
  expectFailureThatNames("not a regular file");
}

// A process can lock every file that it can open. Here it locks the registry as readers of SQLite
// do.
TEST_F(RegistryAttack, OtherUsersCannotBlockAnInstallation) {
  struct stat status {};
  ASSERT_EQ(chmod(inData("packages.lock").c_str(), 0644), 0);  // as earlier versions made it
  EXPECT_EQ(quillonInTime({"package", "install", manifest()}).status, 0);
  ASSERT_EQ(stat(inData("packages.lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);

  const int registry = open(inData("packages.db").c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_RDLCK;  // needs no right to write
  ASSERT_EQ(fcntl(registry, F_SETLK, &lock), 0);
  EXPECT_EQ(quillonInTime({"package", "install", manifest()}).status, 0);
  close(registry);
}

class ManifestAttack : public RegistryAttack {
 protected:
  void expectRefusal(const std::string& text) {
    const Finished finished = quillonInTime({"package", "install", manifest()});
    EXPECT_EQ(finished.status, kServiceFailed);
    EXPECT_THAT(finished.err, AllOf(StartsWith("quillon: "), HasSubstr(text)));
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 1) << finished.err;
    expectLaunchable();
  }
};

TEST_F(ManifestAttack, AFifoIsReported) {
  fs::remove(manifest());
  ASSERT_EQ(mkfifo(manifest().c_str(), 0666), 0);
  expectRefusal("not a regular file");
}

TEST_F(ManifestAttack, ALinkToADeviceIsReported) {
  fs::remove(manifest());
  fs::create_symlink("/dev/zero", manifest());
  expectRefusal("not a regular file");
}

TEST_F(ManifestAttack, AnEndlessFileIsReported) {
  constexpr off_t kSize = off_t{8} << 40;
  ASSERT_EQ(truncate(manifest().c_str(), kSize), 0);
  expectRefusal("larger than 1 MiB");
}

TEST_F(ManifestAttack, NestedBracketsAreReported) {
  writeFile(manifest(), "a = " + std::string(80'000, '['));
  expectRefusal("this is not valid TOML");
}

}  // namespace
}  // namespace quillon::test
