#include "packages/manifest.h"

#include <gmock/gmock.h>

#include "data_paths.h"
#include "device_paths.h"
#include "tests/support/program.h"
#include "tests/support/temporary_directory.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class ManifestTest : public ::testing::Test {
 protected:
  Expected<Manifest> read(const std::string& text) {
    test::writeFile(path, text);
    return readManifest(path);
  }
  // Returns "LINE:COLUMN: what; remedy", or "accepted".
  std::string mistake(const std::string& text) {
    const auto manifest = read(text);
    if (manifest) {
      return "accepted";
    }
    const std::string& what = manifest.error().what;
    EXPECT_TRUE(what.starts_with(path + ":")) << what;
    return what.substr(path.size() + 1) + "; " + manifest.error().remedy;
  }

  test::TemporaryDirectory folder;
  const std::string path = (folder.path() / "m.toml").string();
};

TEST_F(ManifestTest, UsesDefaultsForMissingKeys) {
  const auto manifest =
      read("[package]\nid='a.b'\nversion='1'\n[[application]]\nid='a.b.c'\nexec='x.dll'\n");
  ASSERT_TRUE(manifest) << manifest.error().what;
  const Package& package = manifest->package;
  EXPECT_EQ(package.id, "a.b");
  EXPECT_EQ(package.rootPath, "/opt/usr/apps/a.b");
  EXPECT_EQ(package.owner, 0U);
  EXPECT_THAT(package.privileges, IsEmpty());
  EXPECT_FALSE(manifest->files);
  ASSERT_EQ(package.applications.size(), 1U);
  const Application& application = package.applications[0];
  EXPECT_EQ(application.exec, "/opt/usr/apps/a.b/x.dll");
  EXPECT_EQ(application.type, "inhouse");
  EXPECT_FALSE(application.service);
}

TEST_F(ManifestTest, ReadsEveryKey) {
  test::writeFile((folder.path() / "out/file").string(), "");
  const auto manifest = read(R"([package]
id = "p"
version = "2.0-rc"
root = "/opt/share/p"
privileges = ["/privilege/one", "http://other.example/two"]
files = "./out"
[[application]]
id = "a"
exec = "/usr/bin/a.dll"
type = "dotnet"
component = "service"
metadata = { "/z" = "1", "http://x/y" = "", "/a" = "3" }
[[application]]
id = "b"
exec = "bin/./b.dll"
component = "ui"
[application.metadata]
"/k" = "v"
)");
  ASSERT_TRUE(manifest) << manifest.error().what;
  const Package& package = manifest->package;
  EXPECT_EQ(package.version, "2.0-rc");
  EXPECT_EQ(package.rootPath, "/opt/share/p");
  EXPECT_THAT(package.privileges,
              ElementsAre("http://velora.example/privilege/one", "http://other.example/two"));
  EXPECT_EQ(manifest->files, folder.path() / "out");
  ASSERT_EQ(package.applications.size(), 2U);
  EXPECT_EQ(package.applications[0].exec, "/usr/bin/a.dll");
  EXPECT_EQ(package.applications[0].type, "dotnet");
  EXPECT_TRUE(package.applications[0].service);
  EXPECT_THAT(package.applications[0].metadata,
              ElementsAre(Pair("http://korvane.example/z", "1"), Pair("http://x/y", ""),
                          Pair("http://korvane.example/a", "3")));
  EXPECT_EQ(package.applications[1].exec, "/opt/share/p/bin/b.dll");
  EXPECT_THAT(package.applications[1].metadata, ElementsAre(Pair("http://korvane.example/k", "v")));
}

TEST_F(ManifestTest, APackageNeedsNoApplication) {
  const auto manifest = read("[package]\nid='p'\nversion='1'\n");
  ASSERT_TRUE(manifest);
  EXPECT_THAT(manifest->package.applications, IsEmpty());
}

constexpr const char* kHead = "[package]\nid='p'\nversion='1'\n";

TEST_F(ManifestTest, ReportsThePositionOfAMistakeInThePackage) {
  const std::string idRemedy = "; write an id such as \"org.example.clock\"";
  EXPECT_EQ(mistake(""),
            "1:1: key 'package' is missing; begin the manifest with a [package] table");
  EXPECT_EQ(mistake("package = 1"),
            "1:11: key 'package' is not a table; begin the manifest with a [package] table");
  EXPECT_EQ(mistake("[package]\nversion='1'"), "1:1: key 'package.id' is missing" + idRemedy);
  EXPECT_EQ(mistake("[package]\nid=5\nversion='1'"),
            "2:4: key 'package.id' is not a string" + idRemedy);
  EXPECT_EQ(mistake("[package]\nid=''\nversion='1'"), "2:4: key 'package.id' is empty" + idRemedy);
  for (const char* bad : {"a/b", "a:b", "/"}) {
    EXPECT_EQ(mistake("[package]\nid='" + std::string(bad) + "'\nversion='1'"),
              "2:4: key 'package.id' contains '/' or ':'" + idRemedy);
  }
  for (const char* bad : {".", ".."}) {
    EXPECT_EQ(mistake("[package]\nid='" + std::string(bad) + "'\nversion='1'"),
              "2:4: key 'package.id' names a folder, not a package" + idRemedy);
  }
  for (const char* bad : {"a\\u0000b", "a\\nb", "\\u007f"}) {
    EXPECT_EQ(mistake("[package]\nid=\"" + std::string(bad) + "\"\nversion='1'"),
              "2:4: key 'package.id' contains a control character" + idRemedy);
  }
  EXPECT_EQ(mistake("[package]\nid='" + std::string(201, 'i') + "'\nversion='1'"),
            "2:4: key 'package.id' is longer than 200 bytes" + idRemedy);
  EXPECT_EQ(mistake("[package]\nid='" + std::string(200, 'i') + "'\nversion='1'"), "accepted");
  EXPECT_EQ(mistake("[package]\nid='p'\n"),
            "1:1: key 'package.version' is missing; write a version such as \"1.0.0\"");
}

TEST_F(ManifestTest, ReportsUnknownKeys) {
  EXPECT_EQ(mistake("[package]\nid='p'\nversion='1'\nverison='2'"),
            "4:9: key 'package.verison' is unknown; the keys here are id, version, root, "
            "privileges, files");
  EXPECT_EQ(mistake(std::string(kHead) + "[appliction]\n"),
            "4:1: key 'appliction' is unknown; the keys here are package, application");
  EXPECT_EQ(mistake(std::string(kHead) + "[[application]]\nid='a'\nexec='x'\nkind='ui'"),
            "7:6: key 'application.kind' is unknown; the keys here are id, exec, type, component, "
            "metadata");
}

TEST_F(ManifestTest, AcceptsOnlyValidRoots) {
  const std::string remedy =
      "; write a path such as \"/opt/usr/apps/org.example.clock\", or leave the key out";
  const auto wrong = [&](const std::string& root) {
    return mistake(std::string(kHead) + "root='" + root + "'");
  };
  const std::string at = "4:6: key 'package.root' ";
  for (const char* bad :
       {"relative", "/opt/usr/../etc", "/opt/usr/apps/", "/opt//usr/x", "/opt/usr/./x"}) {
    EXPECT_EQ(wrong(bad), at + "is not an absolute path in its shortest form" + remedy) << bad;
  }
  for (const char* bad : {"/etc/x", "/opt/usr", "/opt/etc/x", "/usr/bin", "/opt/usrx/y",
                          "/opt/usr/x", "/opt/usr/apps", "/usr/apps", "/opt/share"}) {
    EXPECT_EQ(wrong(bad), at + "is not below /opt/usr/apps, /usr/apps or /opt/share" + remedy)
        << bad;
  }
  EXPECT_EQ(wrong("/opt/usr/a:b"), at + "contains ':', which joins lists of paths" + remedy);
  for (const char* bad : {"/opt/usr/apps/.quillon-1-1", "/opt/share/.quillon-1-1/x"}) {
    EXPECT_EQ(wrong(bad), at + "contains a name that begins with '.quillon-'" + remedy) << bad;
  }
  for (const char* good : {"/opt/usr/apps/x", "/usr/apps/x", "/opt/share/x/y"}) {
    EXPECT_EQ(wrong(good), "accepted") << good;
  }
}

// Otherwise a package could decide what the platform reads for other packages.
TEST_F(ManifestTest, AcceptsNoFolderThatThePlatformReadsAsARoot) {
  for (const fs::path file :
       {device_paths::kTpaCache, device_paths::kCobaCache, device_paths::kObjectTracker,
        device_paths::kReflectionEliminator, device_paths::kNetcoreapp, device_paths::kFramework,
        device_paths::kPlatformLibraries, device_paths::kTvAppApi, device_paths::kDpc,
        device_paths::kReadOnlyFlags, device_paths::kWritableFlags, device_paths::kPreloadList,
        device_paths::kUpdatedCertificates, device_paths::kPlatformCertificates, kDataDirectory,
        kConfigDirectory, kProcessDirectory}) {
    for (fs::path root = file / "folder"; root.has_relative_path(); root = root.parent_path()) {
      EXPECT_THAT(mistake(std::string(kHead) + "root='" + root.string() + "'"),
                  ::testing::HasSubstr("key 'package.root' is not"))
          << root;
    }
  }
}

TEST_F(ManifestTest, ReportsThePositionOfAMistakeInLists) {
  const std::string privileges = "; write a list of strings such as [\"/privilege/internet\"]";
  EXPECT_EQ(mistake(std::string(kHead) + "privileges='x'"),
            "4:12: key 'package.privileges' is not a list" + privileges);
  EXPECT_EQ(mistake(std::string(kHead) + "privileges=['x', 1]"),
            "4:18: key 'package.privileges' contains a value that is not a string" + privileges);
  EXPECT_EQ(mistake(std::string(kHead) + "privileges=['']"),
            "4:13: key 'package.privileges' is empty" + privileges);
  EXPECT_EQ(mistake(std::string(kHead) + "files='none'"),
            "4:7: key 'package.files' does not name a folder: '" +
                (folder.path() / "none").string() + "'; name a folder, relative to the manifest's");
}

TEST_F(ManifestTest, ReportsThePositionOfAMistakeInAnApplication) {
  const auto wrong = [&](const std::string& lines) {
    return mistake(std::string(kHead) + "[[application]]\n" + lines);
  };
  const std::string execRemedy =
      "; write the assembly's path relative to the package's root, such as \"bin/Clock.dll\"";
  EXPECT_EQ(mistake(std::string(kHead) + "[application]\nid='a'"),
            "4:1: key 'application' is not a list of tables; write [[application]], with two "
            "brackets, before each application");
  EXPECT_EQ(wrong("id='a'"), "4:1: key 'application.exec' is missing" + execRemedy);
  EXPECT_EQ(wrong("id='a'\nexec='../x.dll'"),
            "6:6: key 'application.exec' contains '..'" + execRemedy);
  for (const std::string exec : {"bin/", "bin/.", ".", "/", "/opt/usr/apps/p", "/opt/usr/./apps"}) {
    EXPECT_EQ(wrong("id='a'\nexec='" + exec + "'"),
              "6:6: key 'application.exec' names a folder" + execRemedy);
  }
  EXPECT_EQ(
      wrong("id='a'\nexec='x'\ntype=''"),
      "7:6: key 'application.type' is empty; write inhouse, inhouseapitest, dotnet or normal");
  EXPECT_EQ(wrong("id='a'\nexec='x'\ntype='native'"),
            "7:6: key 'application.type' is not an application type: 'native'; write inhouse, "
            "inhouseapitest, dotnet or normal");
  EXPECT_EQ(wrong("id='a'\nexec='x'\ncomponent='widget'"),
            "7:11: key 'application.component' is neither \"ui\" nor \"service\"; write \"ui\" or "
            "\"service\"");
  EXPECT_EQ(wrong("id='a'\nexec='x'\nmetadata=1"),
            "7:10: key 'application.metadata' is not a table; write a table of strings such as { "
            "\"/velora/metadata/name\" = \"value\" }");
  EXPECT_EQ(
      wrong("id='a'\nexec='x'\nmetadata={ k = 1 }"),
      "7:16: key 'application.metadata.k' is not a string; write a table of strings such as { "
      "\"/velora/metadata/name\" = \"value\" }");
  EXPECT_EQ(wrong("id='a'\nexec='x'\n[[application]]\nid='a'\nexec='y'"),
            "8:4: key 'application.id' 'a' occurs twice; give each application an id of its own");
}

TEST_F(ManifestTest, ReportsTheFirstMistakeOnly) {
  EXPECT_THAT(mistake("[package]\nid=1\nversion=2\nroot=3"), ::testing::StartsWith("2:4:"));
}

TEST_F(ManifestTest, ReportsThePositionOfInvalidToml) {
  EXPECT_THAT(mistake("[package]\nid = \n"),
              ::testing::StartsWith("2:6: this is not valid TOML: "));
  for (const std::string header : {"[=]", "[!a]", "[\1]", "[a\xef\xbb\xbd]", "[a \xef\xac\xa6]"}) {
    EXPECT_THAT(mistake(header), ::testing::StartsWith("1:")) << header;
    EXPECT_THAT(mistake(header), ::testing::HasSubstr(": this is not valid TOML: ")) << header;
  }
}

TEST_F(ManifestTest, ReportsAFileThatCannotBeRead) {
  const auto missing = readManifest(folder.path() / "missing.toml");
  ASSERT_FALSE(missing);
  EXPECT_THAT(missing.error().what, ::testing::StartsWith("cannot read the manifest '"));
  EXPECT_FALSE(readManifest(folder.path()));
}

}  // namespace
}  // namespace quillon::workstation
