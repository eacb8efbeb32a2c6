#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <sstream>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

using ::testing::HasSubstr;

class PackageCommandTest : public CommandTest {
 protected:
  std::string manifest(const std::string& files) {
    const std::string path = (folder() / "manifests/clock.toml").string();
    writeFile(path, "[package]\nid = 'clock'\nversion = '2'\nprivileges = ['/p']\nfiles = '" +
                        files +
                        "'\n[[application]]\nid = 'clock.ui'\nexec = 'c.dll'\n"
                        "metadata = { '/z' = '1', '/a' = '2' }\n");
    return path;
  }
};

TEST_F(PackageCommandTest, InstallsListsAndRemoves) {
  EXPECT_EQ(quillon({"package", "list"}).out, "no packages are installed\n");
  EXPECT_EQ(quillon({"package", "list", "--json"}).out, "[]\n");
  writeFile((folder() / "manifests/out/c.dll").string(), "bytes");
  const Finished installed = quillon({"package", "install", manifest("out")});
  EXPECT_EQ(installed.status, 0) << installed.err;
  EXPECT_EQ(installed.out, "installed clock 2 to /opt/usr/apps/clock\n");
  EXPECT_EQ(contentsOf(device() + "/opt/usr/apps/clock/c.dll"), "bytes");
  EXPECT_EQ(quillon({"package", "list"}).out,
            "clock 2  /opt/usr/apps/clock\n  clock.ui  inhouse  /opt/usr/apps/clock/c.dll\n");
  EXPECT_EQ(quillon({"package", "remove", "clock"}).out, "removed clock\n");
  EXPECT_EQ(quillon({"package", "list"}).out, "no packages are installed\n");
}

TEST_F(PackageCommandTest, ListsAsJson) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out"), "--user", "1234"}).status, 0);
  const auto list = nlohmann::json::parse(quillon({"package", "list", "--json"}).out);
  const auto expected = nlohmann::json::parse(R"([{
    "id": "clock", "version": "2", "root": "/opt/usr/apps/clock", "owner": 1234,
    "privileges": ["http://velora.example/p"],
    "applications": [{
      "id": "clock.ui", "exec": "/opt/usr/apps/clock/c.dll", "type": "inhouse", "component": "ui",
      "metadata": [{"key": "http://korvane.example/z", "value": "1"},
                   {"key": "http://korvane.example/a", "value": "2"}]}]}])");
  EXPECT_EQ(list, expected);
  EXPECT_EQ(quillon({"package", "remove", "clock"}).status, 104);
  EXPECT_EQ(quillon({"package", "remove", "clock", "--user", "1234"}).status, 0);
}

TEST_F(PackageCommandTest, FilesMayBeOutsideTheManifestsFolder) {
  writeFile((folder() / "build/out/c.dll").string(), "elsewhere");
  const Finished installed = quillon({"package", "install", manifest("../build/out")});
  EXPECT_EQ(installed.status, 0) << installed.err;
  EXPECT_EQ(contentsOf(device() + "/opt/usr/apps/clock/c.dll"), "elsewhere");
}

TEST_F(PackageCommandTest, AMistakeIsReportedInOneLineWithItsPosition) {
  const std::string path = manifest("missing");
  const Finished refused = quillon({"package", "install", path});
  EXPECT_EQ(refused.status, 112);
  EXPECT_EQ(refused.err, "quillon: " + path +
                             ":5:9: key 'package.files' does not name a folder: '" +
                             (folder() / "manifests/missing").string() +
                             "'; name a folder, relative to the manifest's\n");
  EXPECT_EQ(quillon({"package", "list"}).out, "no packages are installed\n");
}

TEST_F(PackageCommandTest, WorksInTheDeviceRootOfTheOption) {
  const std::string other = (folder() / "other").string();
  ASSERT_EQ(quillon({"device", "init", other, "--framework", "none"}).status, 0);
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out")}).status, 0);
  EXPECT_EQ(quillon({"package", "remove", "--device", other, "clock"}).status, 104);
  EXPECT_TRUE(std::filesystem::exists(device() + "/opt/usr/apps/clock/c.dll"));
}

// A folder as dotnet publish writes it.
class PublishedFolderTest : public PackageCommandTest {
 protected:
  std::string publish(const std::string& name) {
    writeFile(published() + "/" + name + ".dll", "assembly");
    writeFile(published() + "/" + name + ".runtimeconfig.json", "{}");
    writeFile(published() + "/Library.dll", "library");
    return published();
  }
  std::string published() { return (folder() / "out").string(); }
};

TEST_F(PublishedFolderTest, GetsAManifestThatCanBeInstalled) {
  const Finished made = quillon({"package", "new", publish("Sample.Clock")});
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_EQ(made.out, "wrote " + published() +
                          "/quillon.toml; install it: quillon package install " + published() +
                          "\n");
  EXPECT_THAT(contentsOf(published() + "/quillon.toml"),
              HasSubstr("id = \"Sample.Clock\"\nversion = \"1.0.0\"\n"));
  const Finished installed = quillon({"package", "install", published()});
  EXPECT_EQ(installed.out, "installed Sample.Clock 1.0.0 to /opt/usr/apps/Sample.Clock\n");
  EXPECT_EQ(contentsOf(device() + "/opt/usr/apps/Sample.Clock/Sample.Clock.dll"), "assembly");
  EXPECT_EQ(contentsOf(device() + "/opt/usr/apps/Sample.Clock/Library.dll"), "library");

  const Finished again = quillon({"package", "new", published()});
  EXPECT_EQ(again.status, 112);
  EXPECT_THAT(again.err, HasSubstr("quillon.toml': File exists; edit it, or remove it first\n"));
}

TEST_F(PublishedFolderTest, IsInstalledByItsOwnManifest) {
  ASSERT_EQ(quillon({"package", "new", publish("Clock"), "--id", "org.example.clock"}).status, 0);
  EXPECT_EQ(quillon({"package", "install", published()}).out,
            "installed org.example.clock 1.0.0 to /opt/usr/apps/org.example.clock\n");
}

TEST_F(PublishedFolderTest, IsInstalledWithoutAManifest) {
  const Finished installed = quillon({"package", "install", publish("Clock \"1\"")});
  EXPECT_EQ(installed.status, 0) << installed.err;
  EXPECT_EQ(installed.out, "installed Clock \"1\" 1.0.0 to /opt/usr/apps/Clock \"1\"\n");
  EXPECT_FALSE(std::filesystem::exists(published() + "/quillon.toml"));
  const auto info =
      nlohmann::json::parse(quillon({"package", "info", "Clock \"1\"", "--json"}).out);
  EXPECT_EQ(info["privileges"][0], "http://velora.example/privilege/internal/default/platform");
  EXPECT_EQ(info["applications"][0]["exec"], "/opt/usr/apps/Clock \"1\"/Clock \"1\".dll");
}

TEST_F(PublishedFolderTest, OfSeveralApplicationsNeedsAChoice) {
  publish("B");
  publish("A");
  const Finished refused = quillon({"package", "install", published()});
  EXPECT_EQ(refused.err,
            "quillon: the folder '" + published() +
                "' has several applications: A.dll, B.dll; choose one: quillon package "
                "new " +
                published() + " --exec A.dll\n");
  EXPECT_EQ(quillon({"package", "new", published(), "--exec", "B.dll"}).status, 0);
  EXPECT_EQ(quillon({"package", "install", published()}).out,
            "installed B 1.0.0 to /opt/usr/apps/B\n");
}

TEST_F(PublishedFolderTest, GetsNoManifestForAMissingAssembly) {
  const Finished refused = quillon({"package", "new", publish("Clock"), "--exec", "nope.dll"});
  EXPECT_EQ(refused.status, 105);
  EXPECT_THAT(refused.err, HasSubstr("there is no file '" + published() + "/nope.dll'"));
  EXPECT_FALSE(std::filesystem::exists(published() + "/quillon.toml"));
}

TEST_F(PublishedFolderTest, WithASingleFileNamesThePublishOption) {
  // The mark that the SDK leaves in a program, with an offset before it.
  const std::string mark =
      "\x8b\x12\x02\xb9\x6a\x61\x20\x38\x72\x7b\x93\x02\x14\xd7\xa0\x32"
      "\x13\xf5\xb9\xe6\xef\xae\x33\x18\xee\x3b\x2d\xce\x24\xb3\x6a\xae";
  writeFile(published() + "/Clock",
            "\x7f"
            "ELF" +
                std::string(8, '\1') + mark);
  for (const char* command : {"install", "new"}) {
    const Finished refused = quillon({"package", command, published()});
    EXPECT_EQ(refused.status, 112);
    EXPECT_THAT(refused.err, HasSubstr("'Clock' is a single-file application; publish it with "
                                       "-p:PublishSingleFile=false\n"));
  }
}

TEST_F(PublishedFolderTest, WithoutAnApplicationIsRefused) {
  writeFile(published() + "/Library.dll", "");
  const Finished refused = quillon({"package", "new", published()});
  EXPECT_EQ(refused.status, 112);
  EXPECT_THAT(refused.err,
              HasSubstr("has no application: no assembly with a .runtimeconfig.json "));
  EXPECT_THAT(quillon({"package", "new", "/no/such/folder"}).err,
              HasSubstr("there is no folder '/no/such/folder'"));
}

TEST_F(PackageCommandTest, PrintsWhatIsKnownOfAPackage) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out")}).status, 0);
  EXPECT_EQ(quillon({"package", "info", "clock"}).out,
            "package     clock\n"
            "version     2\n"
            "root        /opt/usr/apps/clock\n"
            "user        all\n"
            "privilege   http://velora.example/p\n"
            "\n"
            "application clock.ui\n"
            "type        inhouse\n"
            "executable  /opt/usr/apps/clock/c.dll\n"
            "component   ui\n"
            "metadata    http://korvane.example/z = 1\n"
            "metadata    http://korvane.example/a = 2\n");
  const auto all = nlohmann::json::parse(quillon({"package", "list", "--json"}).out);
  EXPECT_EQ(nlohmann::json::parse(quillon({"package", "info", "clock", "--json"}).out), all[0]);
  EXPECT_EQ(quillon({"package", "info", "other"}).status, 104);
}

// The time at which a process was started, as its record in the device root has it.
std::string startTimeOf(const std::string& process) {
  std::istringstream fields(contentsOf("/proc/" + process + "/stat"));
  std::string field;
  for (int i = 0; i < 22; ++i) {
    fields >> field;
  }
  return field;
}

TEST_F(PackageCommandTest, SaysWhichProcessesRunThePackageThatIsRemoved) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out")}).status, 0);
  const std::string process = std::to_string(getpid());
  const std::string records = device() + "/opt/usr/share/quillon/processes/";
  std::filesystem::create_directories(records);
  std::filesystem::create_symlink(startTimeOf(process) + ":clock", records + process);
  std::filesystem::create_symlink("1:clock", records + "1");  // of an earlier process
  const std::string expected =
      "quillon: 'clock' still runs, with its former files, in the process " + process +
      "; files that it has not opened yet are missing or new to it: start it again\n";
  EXPECT_EQ(quillon({"package", "install", manifest("out")}).err, expected);
  const Finished removed = quillon({"package", "remove", "clock"});
  EXPECT_EQ(removed.out, "removed clock\n");
  EXPECT_EQ(removed.err, "quillon: 'clock' still runs, without its files, in the process " +
                             process + "; end it: kill " + process + "\n");
  EXPECT_EQ(removed.status, 0);
}

TEST_F(PackageCommandTest, NamesTheUserOfAPackageOfAnotherUser) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out"), "--user", "1234"}).status, 0);
  for (const char* command : {"info", "remove"}) {
    const Finished refused = quillon({"package", command, "clock"});
    EXPECT_EQ(refused.status, 104);
    EXPECT_EQ(refused.err,
              "quillon: package 'clock' is installed for another user; name the user: --user "
              "1234\n");
  }
}

TEST_F(PackageCommandTest, NamesTheCommandThatFreesItsRoot) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  writeFile(device() + "/opt/usr/apps/clock/old", "");
  const Finished refused = quillon({"package", "install", manifest("out")});
  const std::string root = device() + "/opt/usr/apps/clock";
  EXPECT_THAT(refused.err, HasSubstr("belongs to no package; choose another 'package.root', or "
                                     "move it away: mv " +
                                     root + " " + root + ".old\n"));
  std::filesystem::rename(root, root + ".old");
  EXPECT_EQ(quillon({"package", "install", manifest("out")}).status, 0);
}

TEST_F(PackageCommandTest, RemovesTheLogsOfItsApplications) {
  writeFile((folder() / "manifests/out/c.dll").string(), "");
  ASSERT_EQ(quillon({"package", "install", manifest("out")}).status, 0);
  const std::string logs = device() + "/opt/usr/share/quillon/logs/";
  for (const char* name : {"clock.ui.log", "clock.ui.log.1", "other.log"}) {
    writeFile(logs + name, "text");
  }
  ASSERT_EQ(quillon({"package", "remove", "clock"}).status, 0);
  EXPECT_EQ(quillon({"logs"}).out, "other\n");
  EXPECT_FALSE(std::filesystem::exists(logs + "clock.ui.log.1"));
}

TEST_F(PackageCommandTest, NamesAPackageThatIsNotInstalled) {
  const Finished refused = quillon({"package", "remove", "clock"});
  EXPECT_EQ(refused.status, 104);
  EXPECT_EQ(refused.err,
            "quillon: no package 'clock' is installed; list the installed packages: quillon "
            "package list\n");
}

}  // namespace
}  // namespace quillon::test
