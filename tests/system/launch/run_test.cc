// quillon run: an assembly without a manifest, an installation or a device root of the user's.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>

#include "quillon/base/exit_status.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const fs::path kBuild = QUILLON_BUILD_DIRECTORY;

// A copy of a sample's folder, as a build writes it.
class RunFixture : public LaunchpadTest {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    fs::copy(kBuild / "managed/packages/org.velora.sample.ending/bin", build(),
             fs::copy_options::recursive);
    fs::create_directory(fresh("work"));
  }
  fs::path build() const { return fresh("build"); }
  fs::path assembly() const { return build() / "SampleEnding.dll"; }
  fs::path defaultDevice() const { return fresh("data") / "quillon/device"; }

  // Runs `quillon run MORE...` without QUILLON_DEVICE, in a folder of its own.
  CommandResult runIt(const std::vector<std::string>& more) const {
    std::vector<std::string> command = {"sh",
                                        "-c",
                                        "cd '" + fresh("work").string() + "' && exec \"$@\"",
                                        "sh",
                                        kBuild / "bin/quillon",
                                        "run"};
    command.insert(command.end(), more.begin(), more.end());
    return run(command, {"XDG_DATA_HOME=" + fresh("data").string()});
  }
  // The installed copy of a file of the build.
  fs::path installed(const std::string& name, const fs::path& device) const {
    for (const auto& entry : fs::directory_iterator(device / "opt/usr/apps")) {
      if (entry.path().filename().string().starts_with("SampleEnding-")) {
        return entry.path() / name;
      }
    }
    return {};
  }
  ino_t inodeOf(const fs::path& file) const {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
    return status.st_ino;
  }
};

TEST_F(RunFixture, NeedsNothingButTheAssembly) {
  const CommandResult first = runIt({assembly(), "say", "hello", "end", "7"});
  EXPECT_EQ(first.status, 7) << first.err;
  EXPECT_THAT(first.err, AllOf(StartsWith("quillon: made the device root '" +
                                          defaultDevice().string() + "' with .NET "),
                               EndsWith("\nhello\n")));
  const CommandResult second = runIt({assembly(), "say", "hello", "end", "7"});
  EXPECT_EQ(second.status, 7);
  EXPECT_EQ(second.err, "hello\n");
  EXPECT_EQ(second.out, "");
}

TEST_F(RunFixture, GivesTheApplicationAllLaterArguments) {
  ASSERT_EQ(runIt({assembly()}).status, 0);
  EXPECT_EQ(runIt({assembly(), "say", "--device", "say", "--help", "say", "--"}).err,
            "--device\n--help\n--\n");
  EXPECT_EQ(runIt({"--direct", assembly(), "--", "say", "--direct"}).err, "--direct\n");
}

TEST_F(RunFixture, UsesTheDeviceRootThatIsGiven) {
  const CommandResult given = runIt({"--device", root(), assembly(), "end", "3"});
  EXPECT_EQ(given.status, 3) << given.err;
  EXPECT_THAT(given.err, IsEmpty());
  EXPECT_FALSE(fs::exists(defaultDevice()));
  EXPECT_FALSE(installed("SampleEnding.dll", root()).empty());
}

TEST_F(RunFixture, InstallsAChangedBuildAgain) {
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  const fs::path copy = installed("SampleEnding.dll", root());
  const ino_t first = inodeOf(copy);
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  EXPECT_EQ(inodeOf(copy), first);
  write(build() / "new.txt", "content");
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  EXPECT_EQ(contentOf(installed("new.txt", root())), "content");
  // The same size and modification time, as some build tools leave them.
  const auto time = fs::last_write_time(build() / "new.txt");
  write(build() / "new.txt", "CONTENT");
  fs::last_write_time(build() / "new.txt", time);
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  EXPECT_EQ(contentOf(installed("new.txt", root())), "CONTENT");
}

TEST_F(RunFixture, InstallsAPackageAgainThatWasRemoved) {
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  const std::string id = installed("", root()).parent_path().filename();
  ASSERT_EQ(run({kBuild / "bin/quillon", "package", "remove", id, "--device", root()}).status, 0);
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "4"}).status, 4);
}

// Otherwise the copies of builds that no longer exist would fill the device root.
TEST_F(RunFixture, RemovesThePackagesOfDeletedBuilds) {
  const fs::path other = fresh("other");
  fs::copy(build(), other, fs::copy_options::recursive);
  ASSERT_EQ(runIt({"--device", root(), other / "SampleEnding.dll"}).status, 0);
  const fs::path copy = installed("", root());
  fs::remove_all(other);
  EXPECT_TRUE(fs::exists(copy));
  const CommandResult second = runIt({"--device", root(), assembly(), "end", "5"});
  EXPECT_EQ(second.status, 5) << second.err;
  EXPECT_EQ(second.err, "");
  EXPECT_FALSE(fs::exists(copy));
  EXPECT_TRUE(fs::exists(installed("SampleEnding.dll", root())));
}

TEST_F(RunFixture, KeepsThePackageOfADeletedBuildThatStillRuns) {
  const fs::path other = fresh("other");
  fs::copy(build(), other, fs::copy_options::recursive);
  ASSERT_EQ(runIt({"--device", root(), other / "SampleEnding.dll"}).status, 0);
  const fs::path copy = installed("", root());
  const std::string id = copy.parent_path().filename();
  const fs::path quillon = kBuild / "bin/quillon";
  const CommandResult started =
      run({quillon, "launch", "--device", root(), "--detach", id, "--", "wait"});
  ASSERT_EQ(started.status, 0) << started.err;
  fs::remove_all(other);
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "5"}).status, 5);
  EXPECT_TRUE(fs::exists(copy));
  EXPECT_EQ(run({quillon, "stop", "--device", root(), id}).status, 0);
  write(build() / "new.txt", "content");
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "5"}).status, 5);
  EXPECT_FALSE(fs::exists(copy));
}

TEST_F(RunFixture, KeepsBuildsOfTheSameNameApart) {
  const fs::path other = fresh("other");
  fs::copy(build(), other, fs::copy_options::recursive);
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  const fs::path copy = installed("SampleEnding.dll", root());
  const ino_t first = inodeOf(copy);
  ASSERT_EQ(runIt({"--device", root(), other / "SampleEnding.dll"}).status, 0);
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  EXPECT_EQ(inodeOf(copy), first);
}

TEST_F(RunFixture, TakesTheProgramOfABuildForItsAssembly) {
  write(build() / "SampleEnding", "a program");
  EXPECT_EQ(runIt({"--device", root(), build() / "SampleEnding", "end", "5"}).status, 5);
}

TEST_F(RunFixture, KeepsTheWorkingDirectoryWritable) {
  const fs::path probe = kBuild / "managed/packages/org.velora.sample.probe/bin/SampleProbe.dll";
  const CommandResult wrote = runIt({"--device", root(), probe, "--answers", "answers.txt"});
  EXPECT_EQ(wrote.status, 0) << wrote.err;
  EXPECT_THAT(contentOf(fresh("work") / "answers.txt"), StartsWith("ready\n"));
}

// An application would find its files read-only in the second launch, but not in the first.
TEST_F(RunFixture, IsDirectIfTheLaunchPadHasTheWorkingDirectoryReadOnly) {
  start(1);
  for (int launch = 0; launch < 2; ++launch) {
    EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "9"}).status, 9);
  }
  EXPECT_EQ(served(), 0);
  EXPECT_TRUE(processes("ready").empty());
}

// No process is prepared for it yet.
TEST_F(RunFixture, KeepsTheWorkingDirectoryWritableInADirectLaunchBesideALaunchPad) {
  start(1);
  const fs::path probe = kBuild / "managed/packages/org.velora.sample.probe/bin/SampleProbe.dll";
  const CommandResult wrote = runIt({"--device", root(), probe, "--answers", "answers.txt"});
  EXPECT_EQ(wrote.status, 0) << wrote.err;
  EXPECT_EQ(served(), 0);
  EXPECT_THAT(contentOf(fresh("work") / "answers.txt"), StartsWith("ready\n"));
}

TEST_F(RunFixture, LaunchesThroughALaunchPadThatHasTheWorkingDirectoryWritable) {
  start(1, 0, {"--writable", fresh("work")});
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  EXPECT_EQ(served(), 0);
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "9"}).status, 9);
  EXPECT_EQ(served(), 1);
  ASSERT_TRUE(awaitProcesses("ready", 1));
  const fs::path probe = kBuild / "managed/packages/org.velora.sample.probe/bin/SampleProbe.dll";
  ASSERT_EQ(runIt({"--device", root(), probe, "--answers", "direct.txt"}).status, 0);
  // The installation has made the processes outdated.
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status();
  EXPECT_EQ(runIt({"--device", root(), probe, "--answers", "prepared.txt"}).status, 0);
  EXPECT_THAT(contentOf(fresh("work") / "prepared.txt"), StartsWith("ready\n"));
  EXPECT_EQ(served(), 2);
}

TEST_F(RunFixture, RefusesAnotherFileBeforeItCopiesTheFolder) {
  for (const char* name : {"SampleEnding.csproj", "SampleEnding.pdb", "SampleEnding-2.dll"}) {
    write(build() / name, "text");
    const CommandResult refused = runIt({"--device", root(), build() / name});
    EXPECT_EQ(refused.status, kNotExecutable);
    EXPECT_THAT(refused.err,
                HasSubstr("'" + (build() / name).string() + "': it is not an assembly"));
    EXPECT_EQ(installed("", root()), "");
  }
  write(build() / "SampleEnding.runtimeconfig.json", "[]");
  EXPECT_EQ(runIt({"--device", root(), assembly()}).status, kNotExecutable);
  EXPECT_EQ(installed("", root()), "");
  write(build() / "a:b.dll", "text");
  const CommandResult colon = runIt({"--device", root(), build() / "a:b.dll"});
  EXPECT_EQ(colon.status, kUnusablePath);
  EXPECT_THAT(colon.err, StartsWith("quillon: the name 'a:b.dll' holds ':'"));
}

TEST_F(RunFixture, NamesLinksThatTheCopyCannotFollow) {
  write(fresh("outside.txt"), "text");
  fs::create_directory(build() / "folder");
  fs::create_symlink("../../outside.txt", build() / "folder/data.txt");
  fs::create_symlink("../SampleEnding.dll", build() / "folder/inside.txt");
  fs::create_symlink("/etc/passwd", build() / "absolute.txt");
  EXPECT_EQ(runIt({"--device", root(), assembly()}).err,
            "quillon: warning: the application will not find '" +
                (build() / "folder/data.txt").string() +
                "', a relative link out of the folder that is installed; put a copy of its target "
                "there\n");
  EXPECT_EQ(runIt({"--device", root(), assembly()}).err, "");
}

// Replaces the version of .NET that the build is for.
void setVersion(const fs::path& configuration, const std::string& version) {
  std::string text = contentOf(configuration);
  const std::string key = "\"version\": \"";
  ASSERT_NE(text.find(key), text.npos);
  write(configuration, text.replace(text.find(key), key.size(), key + version + "\", \"was\": \""));
}

TEST_F(RunFixture, WarnsOnceOfWhatTheLaunchFinds) {
  setVersion(build() / "SampleEnding.runtimeconfig.json", "8.0.0");
  const CommandResult older = runIt({"--device", root(), assembly()});
  EXPECT_EQ(older.status, 0);
  EXPECT_THAT(older.err, HasSubstr("was built for Microsoft.NETCore.App 8.0.0"));
  EXPECT_EQ(std::count(older.err.begin(), older.err.end(), '\n'), 1) << older.err;
}

TEST_F(RunFixture, PrintsNoPlanIfARuntimeIsMissing) {
  setVersion(build() / "SampleEnding.runtimeconfig.json", "99.0.0");
  const CommandResult newer = runIt({"--device", root(), assembly()});
  EXPECT_EQ(newer.status, kNoRuntime);
  EXPECT_EQ(newer.out, "");
  EXPECT_EQ(std::count(newer.err.begin(), newer.err.end(), '\n'), 1) << newer.err;
}

// The records of builds outlive the registry.
TEST_F(RunFixture, InstallsAgainWhatALostRegistryDoesNotKnow) {
  const fs::path other = fresh("other");
  fs::copy(build(), other, fs::copy_options::recursive);
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  const fs::path copy = installed("", root()).parent_path();
  fs::remove(root() / "opt/usr/share/quillon/packages.db");
  ASSERT_EQ(runIt({"--device", root(), other / "SampleEnding.dll"}).status, 0);
  const CommandResult blocked = runIt({"--device", root(), assembly()});
  EXPECT_EQ(blocked.status, kServiceFailed);
  const size_t command = blocked.err.find("mv " + copy.string());
  ASSERT_NE(command, blocked.err.npos) << blocked.err;
  ASSERT_EQ(run({"/bin/sh", "-c", blocked.err.substr(command)}).status, 0);
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "6"}).status, 6);
}

// Another user may have planted it in a device root that this user may write to.
TEST_F(RunFixture, WritesItsRecordThroughNoLink) {
  ASSERT_EQ(runIt({"--device", root(), assembly()}).status, 0);
  const fs::path id = installed("", root()).parent_path().filename();
  const fs::path record = root() / ".quillon" / ("run-" + id.string());
  write(fresh("elsewhere"), "kept");
  ASSERT_TRUE(fs::remove(record));
  fs::create_symlink(fresh("elsewhere"), record);
  EXPECT_EQ(runIt({"--device", root(), assembly(), "end", "2"}).status, 2);
  EXPECT_EQ(contentOf(fresh("elsewhere")), "kept");
}

TEST_F(RunFixture, RefusesWhatIsNoApplication) {
  const CommandResult missing = runIt({"none.dll"});
  EXPECT_EQ(missing.status, kNoAssembly);
  EXPECT_EQ(missing.err,
            "quillon: there is no assembly 'none.dll'; name the .dll that dotnet build or dotnet "
            "publish wrote\n");
  write(fresh("home/App.dll"), "");
  const CommandResult home =
      run({kBuild / "bin/quillon", "run", "--device", root(), fresh("home/App.dll")},
          {"HOME=" + fresh("home/user").string()});
  EXPECT_EQ(home.status, kUsage);
  EXPECT_THAT(home.err,
              HasSubstr("is not the application's own; move the application to a folder"));
  const CommandResult gone = runIt({"--device", fresh("gone"), assembly()});
  EXPECT_EQ(gone.status, kNoDeviceRoot);
  EXPECT_THAT(gone.err, HasSubstr("there is no folder '" + fresh("gone").string() + "'"));
}

}  // namespace
}  // namespace quillon::test
