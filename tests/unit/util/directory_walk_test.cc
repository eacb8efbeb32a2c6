#include "util/zq_utils/directory_walk.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "tests/support/next_call.h"
#include "tests/support/tree_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

// If true, readdir(3) reports no entry types, as on some file systems.
bool withoutTypes = false;

}  // namespace

// Replaces the function of the C library.
extern "C" dirent* readdir(DIR* directory) {
  static const auto original = quillon::test::next<decltype(&readdir)>("readdir");
  dirent* entry = original(directory);
  if (withoutTypes && entry != nullptr) {
    entry->d_type = DT_UNKNOWN;
  }
  return entry;
}

namespace {

class DirectoryWalk : public quillon::test::TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    makeFile("top/file");
    makeFile("top/one/file1");
    makeFile("top/one/two/file2");
    makeFile("top/one/two/three/file3");
    makeLink("top/to-file", "file");
    makeLink("top/to-directory", "one");
    makeLink("top/to-nowhere", "nowhere");
    ASSERT_EQ(mkfifo(at("top/pipe").c_str(), 0600), 0);
  }

  // Runs a walk and returns the reported paths, relative to the folder of the test.
  template <typename Walk>
  std::vector<std::string> reported(const Walk& walk) const {
    std::vector<std::string> result;
    walk([&](const std::string& path, const char* name) {
      EXPECT_EQ(std::filesystem::path(path).filename(), name);
      result.push_back(std::filesystem::path(path).lexically_relative(at("")));
    });
    return result;
  }
  std::vector<std::string> files(const std::string& directory, unsigned int depth) const {
    return reported([&](const FileReader& r) { scanFilesInDirectory(directory, r, depth); });
  }
  std::vector<std::string> filesOfVariant(const std::string& directory, unsigned int depth) const {
    return reported([&](const FileReader& r) { scanFilesInDir(directory, r, depth); });
  }
  std::vector<std::string> directories(const std::string& directory) const {
    return reported([&](const FileReader& r) { scanDirsInDirectory(directory, r); });
  }
};

TEST_F(DirectoryWalk, ReportsFilesAndLinksOfOneDirectory) {
  EXPECT_THAT(files(at("top"), 0), UnorderedElementsAre("top/file", "top/to-file",
                                                        "top/to-directory", "top/to-nowhere"));
}

TEST_F(DirectoryWalk, DescendsAsFarAsDepthAllows) {
  EXPECT_THAT(files(at("top/one"), 0), ElementsAre("top/one/file1"));
  EXPECT_THAT(files(at("top/one"), 1), ElementsAre("top/one/file1", "top/one/two/file2"));
  EXPECT_THAT(files(at("top/one"), 2),
              ElementsAre("top/one/file1", "top/one/two/file2", "top/one/two/three/file3"));
}

TEST_F(DirectoryWalk, AddsNoSecondSlash) {
  std::vector<std::string> paths;
  scanFilesInDirectory(
      at("top/one/"), [&](const std::string& path, const char*) { paths.push_back(path); }, 0);
  EXPECT_THAT(paths, ElementsAre(at("top/one/file1")));
}

TEST_F(DirectoryWalk, IsSilentAboutWhatCannotBeOpened) {
  EXPECT_THAT(files(at("missing"), 1), IsEmpty());
  EXPECT_THAT(files(at("top/file"), 1), IsEmpty());
  EXPECT_THAT(files("", 1), IsEmpty());
  EXPECT_THAT(filesOfVariant(at("missing"), 3), IsEmpty());
  EXPECT_TRUE(quillon::test::platform().log.empty());
}

TEST_F(DirectoryWalk, VariantReportsLinksThatLeadSomewhere) {
  EXPECT_THAT(filesOfVariant(at("top"), 0),
              UnorderedElementsAre("top/file", "top/to-file", "top/to-directory"));
}

TEST_F(DirectoryWalk, VariantDescendsFromDepthTwo) {
  EXPECT_THAT(filesOfVariant(at("top/one"), 1), ElementsAre("top/one/file1"));
  EXPECT_THAT(filesOfVariant(at("top/one"), 2), ElementsAre("top/one/file1", "top/one/two/file2"));
  EXPECT_THAT(filesOfVariant(at("top/one"), 3),
              ElementsAre("top/one/file1", "top/one/two/file2", "top/one/two/three/file3"));
}

TEST_F(DirectoryWalk, VariantSkipsSymlinkTrees) {
  makeFile("with.tac_symlink.here/file");
  makeFile("outer/.tac_symlink/file");
  EXPECT_THAT(filesOfVariant(at("with.tac_symlink.here"), 0), IsEmpty());
  EXPECT_THAT(filesOfVariant(at("outer"), 2), IsEmpty());
  EXPECT_THAT(files(at("outer"), 1), ElementsAre("outer/.tac_symlink/file"));
}

TEST_F(DirectoryWalk, ReportsSubdirectoriesButNoLinksToThem) {
  makeDirectory("top/other");
  EXPECT_THAT(directories(at("top")), UnorderedElementsAre("top/one", "top/other"));
  EXPECT_THAT(directories(at("missing")), IsEmpty());
  EXPECT_THAT(quillon::test::platform().trace,
              ElementsAre(::testing::HasSubstr("scanDirsInDirectory"), "end", ::testing::_, "end"));
}

class WalkWithoutTypes : public DirectoryWalk {
 protected:
  void SetUp() override {
    DirectoryWalk::SetUp();
    withoutTypes = true;
  }
  void TearDown() override { withoutTypes = false; }
};

TEST_F(WalkWithoutTypes, ReportsNothing) {
  EXPECT_THAT(files(at("top"), 3), IsEmpty());
  EXPECT_THAT(directories(at("top")), IsEmpty());
}

// Directories, including "." and "..", are reported too, but none is entered.
TEST_F(WalkWithoutTypes, TheVariantExaminesTheEntries) {
  EXPECT_THAT(reported([&](const FileReader& reader) {
                scanFilesInDir(
                    at("top"),
                    [&](const std::string& path, const char* name) {
                      if (name[0] != '.') {
                        reader(path, name);
                      }
                    },
                    3);
              }),
              UnorderedElementsAre("top/file", "top/one", "top/to-file", "top/to-directory"));
}

}  // namespace
