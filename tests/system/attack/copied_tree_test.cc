// Copies of directories in which another user has put pipes and links: a copy never waits, and
// writes nothing outside its destination.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "tests/support/tree_test.h"
#include "util/zq_utils/files.h"

namespace quillon::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr unsigned kDeadline = 60;  // seconds; a copy that waits for a pipe ends the test program

const FSFlag kAllFlags[] = {
    FS_NONE,
    FS_MERGE_SKIP,
    FS_MERGE_OVERWRITE,
    FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE,
    FS_MERGE_OVERWRITE | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS,
    FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS,
    FS_MERGE_SKIP | FS_COMMIT_COPY_FILE | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS,
};

class CopiedTree : public TreeTest {
 protected:
  void SetUp() override {
    TreeTest::SetUp();
    alarm(kDeadline);
  }
  void TearDown() override { alarm(0); }

  bool copy(FSFlag flags) const { return copyDir(at("from"), at("to"), flags); }

  void makePipe(const std::string& name) const {
    ASSERT_EQ(mkfifo(at(name).c_str(), 0600), 0) << name;
  }

  void makeSocket(const std::string& name) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(at(name).size(), sizeof address.sun_path);
    at(name).copy(address.sun_path, sizeof address.sun_path - 1);
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(made);
  }

  static void expectOneFailure(const std::string& why) {
    EXPECT_THAT(
        platform().linesOfOperations(),
        ElementsAre(AllOf(StartsWith("6 copyDir: Failed to copy directory: "), HasSubstr(why))));
  }
};

TEST_F(CopiedTree, APipeInTheSourceIsAFailure) {
  makeDirectory("from");
  makePipe("from/pipe");
  EXPECT_FALSE(copy(FS_NONE));
  expectOneFailure("Operation not supported");
  EXPECT_FALSE(isThere(at("to/pipe")));
}

TEST_F(CopiedTree, ASocketInTheSourceIsAFailure) {
  makeDirectory("from");
  makeSocket("from/socket");
  EXPECT_FALSE(copy(FS_NONE));
  expectOneFailure("No such device or address");
  EXPECT_FALSE(isThere(at("to/socket")));
}

TEST_F(CopiedTree, APipeInThePlaceOfAFileIsAFailureWithOrWithoutAReader) {
  makeFile("from/file", "content");
  makeDirectory("to");
  makePipe("to/file");
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE));
  expectOneFailure("No such device or address");
  platform().reset();
  const int reader = open(at("to/file").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE));
  expectOneFailure("Operation not supported");
  char byte = 0;
  EXPECT_EQ(read(reader, &byte, 1), 0);
  close(reader);
}

TEST_F(CopiedTree, APipeInThePlaceOfAFileIsSkippedOrReplaced) {
  makeFile("from/file", "content");
  makeDirectory("to");
  makePipe("to/file");
  EXPECT_TRUE(copy(FS_MERGE_SKIP));
  EXPECT_TRUE(std::filesystem::is_fifo(at("to/file")));
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE));
  EXPECT_EQ(contentOf(at("to/file")), "content");
}

TEST_F(CopiedTree, AFileIsNeverWrittenThroughALink) {
  makeFile("from/file", "new");
  for (const FSFlag flags : kAllFlags) {
    SCOPED_TRACE(flags);
    chmod(makeFile("outside", "precious").c_str(), 0600);
    makeLink("to/file", at("outside"));
    copy(flags);
    EXPECT_EQ(contentOf(at("outside")), "precious");
    EXPECT_EQ(std::filesystem::status(at("outside")).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    std::filesystem::remove_all(at("to"));
  }
}

TEST_F(CopiedTree, AMergeKeepsALinkInThePlaceOfAFile) {
  makeFile("from/file", "new");
  makeFile("from/other", "other");
  makeFile("to/inside", "precious");
  makeLink("to/file", "inside");
  for (const FSFlag flags : {FS_MERGE_SKIP, FS_MERGE_OVERWRITE,
                             FS_MERGE_OVERWRITE | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS,
                             FS_MERGE_SKIP | FS_COMMIT_COPY_FILE}) {
    SCOPED_TRACE(flags);
    EXPECT_TRUE(copy(flags));
    EXPECT_EQ(std::filesystem::read_symlink(at("to/file")), "inside");
    EXPECT_EQ(contentOf(at("to/inside")), "precious");
    EXPECT_TRUE(isThere(at("to/other")));
    std::filesystem::remove(at("to/other"));
  }
}

TEST_F(CopiedTree, ADanglingLinkInThePlaceOfAFileStaysAndIsAFailure) {
  makeFile("from/file", "new");
  makeLink("to/file", "nowhere");
  EXPECT_FALSE(copy(FS_MERGE_SKIP));
  expectOneFailure("File exists");
  platform().reset();
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE));
  expectOneFailure("Too many levels of symbolic links");
  EXPECT_EQ(std::filesystem::read_symlink(at("to/file")), "nowhere");
}

TEST_F(CopiedTree, ADanglingLinkInThePlaceOfADirectoryStaysAndIsAFailure) {
  makeFile("from/nested/file", "new");
  makeLink("to/nested", "nowhere");
  for (const FSFlag flags : {FS_MERGE_SKIP, FS_MERGE_OVERWRITE}) {
    EXPECT_FALSE(copy(flags)) << flags;
    EXPECT_THAT(
        platform().linesOfOperations(),
        ElementsAre("6 createDir: Failed to create directory: " + at("to/nested"),
                    "6 copyDir: Unable to create destination directory " + at("to/nested")));
    EXPECT_EQ(std::filesystem::read_symlink(at("to/nested")), "nowhere") << flags;
    platform().reset();
  }
}

TEST_F(CopiedTree, NoFileIsCreatedThroughADanglingLink) {
  makeFile("from/file", "new");
  for (const FSFlag flags : kAllFlags) {
    makeLink("to/file", at("outside"));
    copy(flags);
    EXPECT_FALSE(isThere(at("outside"))) << flags;
    std::filesystem::remove_all(at("to"));
  }
}

TEST_F(CopiedTree, ADirectoryIsNeverCopiedThroughALink) {
  makeFile("from/nested/file", "new");
  chmod(at("from/nested").c_str(), 0777);
  for (const char* target : {"outside", "nowhere"}) {
    for (const FSFlag flags : kAllFlags) {
      SCOPED_TRACE(std::string(target) + " " + std::to_string(flags));
      chmod(makeDirectory("outside").c_str(), 0700);
      makeLink("to/nested", at(target));
      copy(flags);
      EXPECT_TRUE(std::filesystem::is_empty(at("outside")));
      EXPECT_EQ(std::filesystem::status(at("outside")).permissions(),
                std::filesystem::perms::owner_all);
      EXPECT_FALSE(isThere(at("nowhere")));
      EXPECT_TRUE(std::filesystem::is_symlink(at("to/nested")));
      std::filesystem::remove_all(at("to"));
    }
  }
}

TEST_F(CopiedTree, AMergeKeepsALinkInThePlaceOfADirectory) {
  makeFile("from/nested/file", "new");
  for (const std::string target : {"outside", "to/inside"}) {
    makeDirectory(target);
    makeLink("to/nested", at(target));
    EXPECT_TRUE(copy(FS_MERGE_SKIP));
    EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
    EXPECT_THAT(platform().lines(), IsEmpty());
    EXPECT_EQ(std::filesystem::read_symlink(at("to/nested")), at(target));
    EXPECT_FALSE(isThere(at(target + "/file")));
    std::filesystem::remove_all(at("to"));
  }
}

// The caller names the destination.
TEST_F(CopiedTree, TheDestinationItselfMayBeALink) {
  makeFile("from/file", "new");
  makeDirectory("elsewhere");
  makeLink("to", "elsewhere");
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
  EXPECT_EQ(contentOf(at("elsewhere/file")), "new");
}

TEST_F(CopiedTree, OwnershipIsNotCopiedThroughALinkAndDoesNotWaitForAPipe) {
  chmod(makeFile("from").c_str(), 0666);
  chmod(makeFile("outside").c_str(), 0600);
  copyOwnershipAndPermissions(at("from"), makeLink("link", "outside"));
  EXPECT_EQ(std::filesystem::status(at("outside")).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  EXPECT_THAT(platform().linesOfOperations(),
              ElementsAre("6 setOwnership: Can't open directory: " + at("link"),
                          StartsWith("6 setDirOwnershipAndPermissions: Failed to change owner: "),
                          StartsWith("6 copyOwnershipAndPermissions: Failed to copy ownership")));
  makePipe("pipe");
  copyOwnershipAndPermissions(at("from"), at("pipe"));
}

TEST_F(CopiedTree, CopiesAndMovesOfAPipeDoNotWait) {
  makePipe("pipe");
  EXPECT_FALSE(copyFile(at("pipe"), at("copy")));
  EXPECT_FALSE(copyFile(makeFile("file"), at("pipe")));
  EXPECT_THAT(platform().linesOfOperations(), ElementsAre(EndsWith("[Operation not supported]"),
                                                          EndsWith("[No such device or address]")));
  EXPECT_FALSE(isThere(at("copy")));
}

}  // namespace
}  // namespace quillon::test
