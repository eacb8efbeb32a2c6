#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/system/commands/command_fixture.h"

namespace quillon::test {
namespace {

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

TEST_F(PackageCommandTest, NamesAPackageThatIsNotInstalled) {
  const Finished refused = quillon({"package", "remove", "clock"});
  EXPECT_EQ(refused.status, 104);
  EXPECT_EQ(refused.err,
            "quillon: no package 'clock' is installed; list the installed packages: quillon "
            "package list\n");
}

}  // namespace
}  // namespace quillon::test
