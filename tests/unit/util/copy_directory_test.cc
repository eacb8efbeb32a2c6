#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/skip.h"
#include "tests/support/tree_test.h"
#include "tests/unit/util/scripted_files.h"
#include "util/zq_utils/files.h"

using quillon::test::files;
using quillon::test::platform;
using quillon::test::TreeTest;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

using Texts = std::vector<std::string>;

class CopyDirectory : public TreeTest {
 protected:
  bool copy(FSFlag flags) const { return copyDir(at("from"), at("to"), flags); }

  static unsigned int modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }

  // Returns the names in a directory, sorted.
  static Texts namesIn(const std::string& path) {
    Texts names;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(CopyDirectory, CopiesFilesDirectoriesAndLinks) {
  makeFile("from/file", "x");
  makeFile("from/nested/deep/file", "y");
  makeLink("from/link", "nested");
  makeLink("from/dangling", "nowhere");
  EXPECT_TRUE(copy(FS_NONE));
  EXPECT_EQ(contentOf(at("to/file")), "x");
  EXPECT_EQ(contentOf(at("to/nested/deep/file")), "y");
  EXPECT_EQ(std::filesystem::read_symlink(at("to/link")), "nested");
  EXPECT_EQ(std::filesystem::read_symlink(at("to/dangling")), "nowhere");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CopyDirectory, NeedsADirectoryToCopy) {
  EXPECT_FALSE(copy(FS_NONE));
  makeFile("from");
  EXPECT_FALSE(copy(FS_NONE));
  const std::string line =
      "6 copyDir: Source directory " + at("from") + " does not exist or is not a directory";
  EXPECT_EQ(platform().linesOfOperations(), (Texts{line, line}));
  EXPECT_FALSE(isThere(at("to")));
}

TEST_F(CopyDirectory, CopiesNothingIntoAnExistingDirectoryUnasked) {
  makeFile("from/file");
  makeDirectory("to");
  for (const FSFlag flags : {FS_NONE, FS_COMMIT_COPY_FILE, FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS}) {
    platform().reset();
    EXPECT_FALSE(copy(flags));
    EXPECT_EQ(platform().linesOfOperations(),
              Texts{"6 copyDir: Destination directory " + at("to") + " already exists"});
  }
  EXPECT_TRUE(namesIn(at("to")).empty());
}

TEST_F(CopyDirectory, SaysThatTheDestinationCannotBeCreated) {
  makeDirectory("from");
  const std::string below = makeFile("file") + "/below";
  EXPECT_FALSE(copyDir(at("from"), below));
  EXPECT_EQ(platform().linesOfOperations(),
            (Texts{"6 createDir: Failed to create directory: " + below,
                   "6 copyDir: Unable to create destination directory " + below}));
}

TEST_F(CopyDirectory, SkipKeepsWhatIsThere) {
  makeFile("from/file", "new");
  makeFile("from/added", "new");
  makeFile("from/nested/file", "new");
  makeFile("to/file", "old");
  makeFile("to/nested/file", "old");
  EXPECT_TRUE(copy(FS_MERGE_SKIP));
  EXPECT_EQ(contentOf(at("to/file")), "old");
  EXPECT_EQ(contentOf(at("to/nested/file")), "old");
  EXPECT_EQ(contentOf(at("to/added")), "new");
}

TEST_F(CopyDirectory, OverwriteReplacesWhatIsThere) {
  makeFile("from/file", "new");
  makeFile("from/nested/file", "new");
  makeFile("to/file", "old and longer");
  makeFile("to/nested/file", "old");
  makeFile("to/nested/own", "kept");
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
  EXPECT_EQ(contentOf(at("to/file")), "new");
  EXPECT_EQ(contentOf(at("to/nested/file")), "new");
  EXPECT_EQ(contentOf(at("to/nested/own")), "kept");
}

TEST_F(CopyDirectory, SkipWinsOverOverwrite) {
  makeFile("from/file", "new");
  makeFile("to/file", "old");
  EXPECT_TRUE(copy(FS_MERGE_SKIP | FS_MERGE_OVERWRITE));
  EXPECT_EQ(contentOf(at("to/file")), "old");
}

TEST_F(CopyDirectory, NeitherMergeReplacesALink) {
  makeLink("from/link", "new");
  makeFile("to/old");
  makeLink("to/link", "old");
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
  EXPECT_TRUE(copy(FS_MERGE_SKIP));
  EXPECT_EQ(std::filesystem::read_symlink(at("to/link")), "old");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CopyDirectory, ADanglingLinkInTheWayIsAnError) {
  makeLink("from/link", "new");
  makeLink("to/link", "nowhere");
  EXPECT_FALSE(copy(FS_MERGE_SKIP));
  EXPECT_EQ(platform().linesOfOperations(),
            Texts{"6 copyDir: Failed to copy symlink: " + at("to/link") + ", File exists"});
  EXPECT_EQ(std::filesystem::read_symlink(at("to/link")), "nowhere");
}

TEST_F(CopyDirectory, ReportsTheLibrarysFailure) {
  makeFile("from/name", "x");
  makeDirectory("to/name");
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE));
  EXPECT_THAT(platform().linesOfOperations(),
              ElementsAre(AllOf(StartsWith("6 copyDir: Failed to copy directory: "),
                                HasSubstr("copy_file"), HasSubstr(at("to/name")))));
}

TEST_F(CopyDirectory, AFailureBelowEndsTheCopyWithoutASecondLine) {
  makeFile("from/nested/name", "x");
  makeDirectory("to/nested/name");
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE));
  EXPECT_EQ(platform().lines().size(), 1U);
}

// Root can read every file, so another user makes the copy.
TEST_F(CopyDirectory, ASourceThatCannotBeReadIsAnError) {
  constexpr uid_t nobody = 65534;
  const uid_t user = geteuid();
  makeFile("from/name", "x");
  chmod(at("from").c_str(), 0300);
  if (user == 0) {
    ASSERT_EQ(chown(at("from").c_str(), nobody, nobody), 0);
    ASSERT_EQ(chown(at("").c_str(), nobody, nobody), 0);
    ASSERT_EQ(seteuid(nobody), 0);
  }
  const bool copied = copy(FS_NONE);
  ASSERT_EQ(seteuid(user), 0);
  chmod(at("from").c_str(), 0700);
  EXPECT_FALSE(copied);
  EXPECT_THAT(platform().lines(),
              ElementsAre(AllOf(StartsWith("6 Failed to copy directory: "), HasSubstr(at("from")),
                                HasSubstr("Permission denied"))));
}

// Another user replaces it after it was found to be a file.
TEST_F(CopyDirectory, AFileThatBecomesALinkIsNotFollowed) {
  if (sizeof(void*) == 4) {
    GTEST_SKIP() << "the test cannot replace lstat64 on a 32-bit machine";
  }
  const std::string secret = makeFile("secret", "secret");
  makeFile("from/file", "content");
  files().onFile = [&](const std::string& path) {
    EXPECT_EQ(path, at("from/file"));
    std::filesystem::remove(path);
    std::filesystem::create_symlink(secret, path);
  };
  EXPECT_FALSE(copyDir(at("from"), at("to")));
  EXPECT_FALSE(std::filesystem::exists(at("to/file")));
}

TEST_F(CopyDirectory, CommitLeavesNoTemporaryFile) {
  makeFile("from/file", "new");
  makeFile("from/nested/file", "new");
  EXPECT_TRUE(copy(FS_COMMIT_COPY_FILE));
  EXPECT_THAT(namesIn(at("to")), ElementsAre("file", "nested"));
  EXPECT_THAT(namesIn(at("to/nested")), ElementsAre("file"));
  EXPECT_EQ(contentOf(at("to/file")), "new");
}

// The file behind the name is replaced, not changed: an open descriptor of the old file still reads
// the old bytes.
TEST_F(CopyDirectory, CommitReplacesByRenaming) {
  makeFile("from/file", "new");
  makeFile("to/file", "old");
  std::filesystem::create_hard_link(at("to/file"), at("holder"));
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE));
  EXPECT_EQ(contentOf(at("to/file")), "new");
  EXPECT_EQ(contentOf(at("holder")), "old");
  EXPECT_THAT(namesIn(at("to")), ElementsAre("file"));
}

TEST_F(CopyDirectory, CommitReplacesALinkInTheWayOfAFile) {
  makeFile("from/file", "new");
  makeFile("victim", "old");
  makeLink("to/file", at("victim"));
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE));
  EXPECT_EQ(contentOf(at("to/file")), "new");
  EXPECT_EQ(contentOf(at("victim")), "old");
}

TEST_F(CopyDirectory, CommitReplacesAnEmptyDirectory) {
  makeFile("from/file", "new");
  makeDirectory("to/file");
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE));
  EXPECT_EQ(contentOf(at("to/file")), "new");
}

TEST_F(CopyDirectory, CommitLeavesItsCopyIfTheRenameFails) {
  makeFile("from/file", "new");
  makeFile("to/file/occupied");
  EXPECT_FALSE(copy(FS_MERGE_OVERWRITE | FS_COMMIT_COPY_FILE));
  EXPECT_THAT(platform().lines(), ElementsAre(StartsWith("6 Failed to copy directory: ")));
  EXPECT_EQ(namesIn(at("to")).size(), 2U);
}

TEST_F(CopyDirectory, PreserveCarriesPermissions) {
  makeFile("from/file");
  chmod(at("from/file").c_str(), 0750);
  chmod(at("from").c_str(), 0705);
  for (const FSFlag commit : {FS_NONE, FS_COMMIT_COPY_FILE}) {
    EXPECT_TRUE(copy(FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS | commit));
    EXPECT_EQ(modeOf(at("to")), 0705U);
    EXPECT_EQ(modeOf(at("to/file")), 0750U);
    removeAll(at("to"));
  }
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CopyDirectory, PreserveCarriesTheOwnerOfAFile) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only the superuser gives files away");
  }
  ASSERT_EQ(chown(makeFile("from/file").c_str(), 1234, 4321), 0);
  EXPECT_TRUE(copy(FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS));
  struct stat status {};
  EXPECT_EQ(stat(at("to/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 1234U);
  EXPECT_EQ(status.st_gid, 4321U);
}

TEST_F(CopyDirectory, ExistingDirectoryTakesItsSourcesModeUnderOverwriteToo) {
  makeDirectory("from");
  makeDirectory("to");
  chmod(at("from").c_str(), 0711);
  chmod(at("to").c_str(), 0700);
  EXPECT_TRUE(copy(FS_MERGE_SKIP));
  EXPECT_EQ(modeOf(at("to")), 0700U);
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
  EXPECT_EQ(modeOf(at("to")), 0711U);
}

// The directory takes the mode of its source, and the files that are there keep theirs.
TEST_F(CopyDirectory, PreserveChangesAnExistingDirectoryUnderSkipToo) {
  makeFile("from/nested/kept", "new");
  makeFile("from/nested/added", "new");
  makeFile("to/nested/kept", "old");
  chmod(at("from").c_str(), 0711);
  chmod(at("from/nested").c_str(), 0750);
  for (const char* file : {"from/nested/kept", "from/nested/added"}) {
    chmod(at(file).c_str(), 0640);
  }
  chmod(at("to").c_str(), 0700);
  chmod(at("to/nested").c_str(), 0700);
  chmod(at("to/nested/kept").c_str(), 0600);
  EXPECT_TRUE(copy(FS_MERGE_SKIP | FS_PRESERVE_OWNERSHIP_AND_PERMISSIONS));
  EXPECT_EQ(modeOf(at("to")), 0711U);
  EXPECT_EQ(modeOf(at("to/nested")), 0750U);
  EXPECT_EQ(modeOf(at("to/nested/kept")), 0600U);
  EXPECT_EQ(contentOf(at("to/nested/kept")), "old");
  EXPECT_EQ(modeOf(at("to/nested/added")), 0640U);
  EXPECT_EQ(contentOf(at("to/nested/added")), "new");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CopyDirectory, NewDirectoryKeepsItsOwnModeUnderOverwrite) {
  makeDirectory("from");
  chmod(at("from").c_str(), 0711);
  const mode_t before = umask(077);
  EXPECT_TRUE(copy(FS_MERGE_OVERWRITE));
  umask(before);
  EXPECT_EQ(modeOf(at("to")), 0700U);
}

}  // namespace
