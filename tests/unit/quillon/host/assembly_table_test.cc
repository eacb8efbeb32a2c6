#include "quillon/host/assemblies/assembly_table.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "tests/support/temporary_directory.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(SimpleName, IsTheFileNameWithoutExtensions) {
  EXPECT_EQ(simpleNameOf("/a/System.Linq.dll"), "System.Linq");
  EXPECT_EQ(simpleNameOf("/a/System.Linq.ni.dll"), "System.Linq");
  EXPECT_EQ(simpleNameOf("A.NI.EXE"), "A");
  EXPECT_EQ(simpleNameOf("/a/b.so"), "");
  EXPECT_EQ(simpleNameOf("/a/x.ni.abc"), "");
  EXPECT_EQ(simpleNameOf(""), "");
}

TEST(AssemblyTable, KeepsTheFirstPathOfANameIgnoringCase) {
  AssemblyTable table;
  table.addTrusted({"/1/A.dll", "/2/a.DLL", "/2/B.dll", "/3/A.exe"});
  EXPECT_THAT(table.trusted(), ElementsAre("/1/A.dll", "/2/B.dll"));
  ASSERT_THAT(table.shadows(), SizeIs(2));
  EXPECT_EQ(table.shadows()[0].name, "a");
  EXPECT_EQ(table.shadows()[0].loser, "/2/a.DLL");
  EXPECT_EQ(table.shadows()[0].winner, "/1/A.dll");
}

TEST(AssemblyTable, PrefersANativeImageInTheSameFolder) {
  AssemblyTable table;
  table.addTrusted(
      {"/1/A.dll", "/1/A.ni.dll", "/1/B.ni.dll", "/1/B.dll", "/1/C.dll", "/2/C.ni.dll"});
  EXPECT_THAT(table.trusted(), ElementsAre("/1/A.ni.dll", "/1/B.ni.dll", "/1/C.dll"));
  ASSERT_THAT(table.shadows(), SizeIs(3));
  EXPECT_EQ(table.shadows()[0].loser, "/1/A.dll");
}

TEST(AssemblyTable, RejectsPathsThatAreRelativeOrNotAssemblies) {
  AssemblyTable table;
  table.addTrusted({"A.dll", "/1/x.ni.abc", "/1/B.dll"});
  EXPECT_THAT(table.trusted(), ElementsAre("/1/B.dll"));
  EXPECT_THAT(table.rejections(), SizeIs(2));
}

TEST(AssemblyTable, IgnoresARepeatedPath) {
  AssemblyTable table;
  table.addTrusted({"/1/A.dll", "/1/A.dll"});
  EXPECT_THAT(table.trusted(), SizeIs(1));
  EXPECT_THAT(table.shadows(), IsEmpty());
}

class AssemblyFolders : public ::testing::Test {
 protected:
  std::string make(const std::string& file) const {
    const fs::path path = directory_.path() / file;
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "x";
    return path.string();
  }
  std::string folder(const std::string& name) const { return (directory_.path() / name).string(); }

 private:
  test::TemporaryDirectory directory_;
};

TEST_F(AssemblyFolders, ReportTheFileShadowedByATrustedOne) {
  const std::string trusted = make("fw/A.dll");
  const std::string own = make("bin/a.dll");
  AssemblyTable table;
  table.addTrusted({trusted});
  table.addFolder(folder("bin"), folder("bin"));
  ASSERT_THAT(table.shadows(), SizeIs(1));
  EXPECT_EQ(table.shadows()[0].loser, own);
  EXPECT_EQ(table.shadows()[0].winner, trusted);
}

TEST_F(AssemblyFolders, ReportTheFileShadowedByAnEarlierFolder) {
  const std::string first = make("1/A.dll");
  const std::string sameFolder = make("1/A.exe");
  const std::string second = make("2/A.dll");
  AssemblyTable table;
  table.addFolder(folder("1"), folder("1"));
  table.addFolder(folder("2"), folder("2"));
  ASSERT_THAT(table.shadows(), SizeIs(2));
  EXPECT_EQ(table.shadows()[0].loser, sameFolder);
  EXPECT_EQ(table.shadows()[1].loser, second);
  EXPECT_EQ(table.shadows()[1].winner, first);
}

TEST_F(AssemblyFolders, ReportAShadowedFileOnlyOnce) {
  const std::string winner = make("fw/A.dll");
  const std::string loser = make("shared/A.dll");
  AssemblyTable table;
  table.addTrusted({winner, loser});
  table.addFolder(folder("shared") + "/", folder("shared") + "/");
  ASSERT_THAT(table.shadows(), SizeIs(1));
  EXPECT_EQ(table.shadows()[0].loser, loser);
}

TEST_F(AssemblyFolders, DoNotShadowTheirOwnFiles) {
  const std::string path = make("1/A.dll");
  fs::create_symlink(folder("1"), folder("link"));
  AssemblyTable table;
  table.addTrusted({path});
  table.addFolder(folder("1"), folder("1"));
  table.addFolder(folder("link"), folder("link"));
  table.addFolder(folder("missing"), folder("missing"));
  EXPECT_THAT(table.shadows(), IsEmpty());
}

}  // namespace
}  // namespace quillon::host
