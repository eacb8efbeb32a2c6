#include "util/zq_utils/files.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "tests/support/controlling_terminal.h"
#include "tests/support/skip.h"
#include "tests/support/tree_test.h"
#include "tests/unit/util/scripted_files.h"
#include "util/zq_utils/file_copy.h"

using quillon::test::controllingTerminalAfter;
using quillon::test::files;
using quillon::test::platform;
using quillon::test::TreeTest;

namespace {

using Texts = std::vector<std::string>;

// No user can remove this file, not even root.
constexpr char kIrremovable[] = "/proc/self/comm";

class Files : public TreeTest {};

TEST_F(Files, ASuccessfulCopyClearsAnEarlierError) {
  boost::system::error_code error(EIO, boost::system::system_category());
  copyRegularFile(makeFile("file"), at("copy"), {}, error);
  EXPECT_FALSE(error);
}

TEST_F(Files, ProgramsDoNotInheritTheFilesOfACopy) {
  makeFile("file", "content");
  files().wasInherited = false;
  EXPECT_TRUE(copyFile(at("file"), at("copy")));
  EXPECT_FALSE(files().wasInherited);
}

TEST_F(Files, RemovesTrees) {
  makeFile("tree/a/b");
  EXPECT_TRUE(removeAll(at("tree")));
  EXPECT_FALSE(isThere(at("tree")));
  EXPECT_TRUE(removeAll(at("tree")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, RemovesOneFileOrEmptyDirectory) {
  EXPECT_TRUE(removeFile(makeFile("file")));
  EXPECT_FALSE(isThere(at("file")));
  EXPECT_TRUE(removeFile(makeDirectory("directory")));
  EXPECT_FALSE(isThere(at("directory")));
  EXPECT_TRUE(removeFile(at("missing")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, RemovesALinkAndNotItsTarget) {
  makeFile("tree/file");
  EXPECT_TRUE(removeAll(makeLink("link", "tree")));
  EXPECT_FALSE(isThere(at("link")));
  EXPECT_TRUE(isThere(at("tree/file")));
}

// If the C library's types had 32 bits, stat(2) would fail for such a file.
TEST_F(Files, RemovesAFileOfThreeGibibytes) {
  const std::string file = makeFile("sparse");
  std::error_code error;
  std::filesystem::resize_file(file, std::uintmax_t{3} << 30, error);
  if (error) {
    QUILLON_SKIP("the file system keeps no file of 3 GiB: " << error.message());
  }
  EXPECT_EQ(getFileSize(file), 3U << 30);
  EXPECT_TRUE(removeFile(file));
  EXPECT_FALSE(isThere(file));
}

TEST_F(Files, RemovesAFileWhoseTimeIsAfterJanuary2038) {
  const std::string file = makeFile("late");
  constexpr timespec kYear2040{.tv_sec = 2'208'988'800, .tv_nsec = 0};
  const std::array times{kYear2040, kYear2040};
  if (utimensat(AT_FDCWD, file.c_str(), times.data(), 0) != 0) {
    QUILLON_SKIP("the file system keeps no such time: " << std::strerror(errno));
  }
  EXPECT_TRUE(removeFile(file));
  EXPECT_FALSE(isThere(file));
}

TEST_F(Files, SaysWhatItCannotRemove) {
  makeFile("directory/file");
  EXPECT_FALSE(removeFile(at("directory")));
  EXPECT_FALSE(removeFile(kIrremovable));
  EXPECT_FALSE(removeAll(kIrremovable));
  EXPECT_EQ(platform().lines(),
            (Texts{"6 Cannot remove: " + at("directory") + ", Directory not empty",
                   "6 Cannot remove: /proc/self/comm, Operation not permitted",
                   "6 Cannot remove: /proc/self/comm, Operation not permitted"}));
  EXPECT_EQ(platform().log[0].file(), "zq_utils.cc");
  EXPECT_EQ(platform().log[0].function(), "removeFile");
  EXPECT_EQ(platform().log[0].colour(), "\x1b[31m");
  EXPECT_EQ(platform().log[2].function(), "removeAll");
}

TEST_F(Files, MovesByRenaming) {
  makeFile("from/file", "x");
  EXPECT_TRUE(moveFile(at("from"), at("to")));
  EXPECT_EQ(contentOf(at("to/file")), "x");
  EXPECT_FALSE(isThere(at("from")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, MovesNothingOntoWhatExists) {
  makeFile("from", "new");
  makeFile("to", "old");
  EXPECT_FALSE(moveFile(at("from"), at("to")));
  EXPECT_EQ(contentOf(at("from")), "new");
  EXPECT_EQ(contentOf(at("to")), "old");
  EXPECT_FALSE(moveFile(at("missing"), at("elsewhere")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, SaysWhyAMoveFailed) {
  makeFile("from", "x");
  EXPECT_FALSE(moveFile(at("from"), at("missing/to")));
  EXPECT_EQ(platform().linesOfOperations(),
            (Texts{"6 moveFile: Cannot move file: " + at("from") +
                       ". Will copy/remove... with error [No such file or directory]",
                   "6 moveFile: Cannot copy file " + at("from") +
                       " due to error [No such file or directory]"}));
  EXPECT_EQ(contentOf(at("from")), "x");
}

TEST_F(Files, SaysThatTheOldFileOfAMoveStays) {
  EXPECT_FALSE(moveFile(kIrremovable, at("to")));
  EXPECT_TRUE(isThere(at("to")));
  EXPECT_EQ(platform().linesOfOperations(),
            (Texts{"6 moveFile: Cannot move file: /proc/self/comm. Will copy/remove... with error "
                   "[Invalid cross-device link]",
                   "6 moveFile: Cannot remove old file when copying: /proc/self/comm with error "
                   "[Operation not permitted]"}));
}

// Moves and copies to a folder on a different file system.
class BetweenFileSystems : public Files {
 protected:
  void SetUp() override {
    Files::SetUp();
    std::string pattern = "/dev/shm/quillon-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) {
      elsewhere_ = pattern;
    }
    if (elsewhere_.empty() || deviceOf(elsewhere_) == deviceOf(at(""))) {
      QUILLON_SKIP("/dev/shm is no second file system to write to");
    }
  }
  void TearDown() override {
    if (!elsewhere_.empty()) {
      std::filesystem::remove_all(elsewhere_);
    }
  }
  std::string there(const std::string& name) const { return elsewhere_ + "/" + name; }

  // Returns the log line of a move that continues with a copy.
  std::string cannotRename(const std::string& path) const {
    return "6 Cannot move file: " + path +
           ". Will copy/remove... with error [Invalid cross-device link]";
  }

 private:
  static dev_t deviceOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
  }
  std::string elsewhere_;
};

TEST_F(BetweenFileSystems, AMoveCopiesAndRemoves) {
  const std::string content(200'000, 'x');
  makeFile("from", content);
  EXPECT_TRUE(moveFile(at("from"), there("to")));
  EXPECT_EQ(contentOf(there("to")), content);
  EXPECT_FALSE(isThere(at("from")));
  EXPECT_EQ(platform().lines(), Texts{cannotRename(at("from"))});
}

TEST_F(BetweenFileSystems, ADirectoryCannotMove) {
  makeFile("from/file", "x");
  EXPECT_FALSE(moveFile(at("from"), there("to")));
  ASSERT_EQ(platform().lines().size(), 2U);
  EXPECT_EQ(platform().lines()[0], cannotRename(at("from")));
  EXPECT_EQ(platform().lines()[1].rfind("6 Cannot copy file " + at("from") + " due to error [", 0),
            0U);
  EXPECT_EQ(contentOf(at("from/file")), "x");
}

TEST_F(BetweenFileSystems, ACopyReplacesContentAndCarriesTheMode) {
  makeFile("from", "new");
  chmod(at("from").c_str(), 0700);
  EXPECT_TRUE(copyFile(at("from"), there("to")));
  EXPECT_EQ(contentOf(there("to")), "new");
  EXPECT_EQ(std::filesystem::status(there("to")).permissions(), std::filesystem::perms::owner_all);
  makeFile("from", "n");
  EXPECT_TRUE(copyFile(at("from"), there("to")));
  EXPECT_EQ(contentOf(there("to")), "n");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(BetweenFileSystems, ACopyHasItsSourcesModeForEveryUmask) {
  const mode_t before = umask(022);
  for (const mode_t mode : {0444U, 0777U, 0600U}) {
    SCOPED_TRACE(mode);
    const std::string name = "from" + std::to_string(mode);
    chmod(makeFile(name, "x").c_str(), mode);
    EXPECT_TRUE(copyFile(at(name), there(name)));
    struct stat status {};
    ASSERT_EQ(stat(there(name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode);
  }
  umask(before);
}

TEST_F(BetweenFileSystems, ACopyClosesALooserTargetToItsSourcesMode) {
  std::ofstream(there("to")) << "old and longer";
  chmod(there("to").c_str(), 0666);
  chmod(makeFile("from", "new").c_str(), 0600);
  EXPECT_TRUE(copyFile(at("from"), there("to")));
  EXPECT_EQ(contentOf(there("to")), "new");
  struct stat status {};
  ASSERT_EQ(stat(there("to").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
}

// rename(2) would replace the link, and not follow it.
TEST_F(BetweenFileSystems, AMoveDoesNotFollowADanglingLink) {
  makeFile("from", "x");
  std::filesystem::create_symlink(there("victim"), there("to"));
  EXPECT_FALSE(moveFile(at("from"), there("to")));
  EXPECT_FALSE(isThere(there("victim")));
  EXPECT_EQ(contentOf(at("from")), "x");
  EXPECT_EQ(platform().lines(),
            (Texts{cannotRename(at("from")), "6 Cannot copy file " + at("from") +
                                                 " due to error [Too many levels of symbolic "
                                                 "links]"}));
}

TEST_F(BetweenFileSystems, ADirectoryIsCopied) {
  makeFile("from/nested/file", "x");
  makeLink("from/link", "nested");
  EXPECT_TRUE(copyDir(at("from"), there("to"), FS_COMMIT_COPY_FILE));
  EXPECT_EQ(contentOf(there("to/nested/file")), "x");
  EXPECT_EQ(std::filesystem::read_symlink(there("to/link")), "nested");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, CopiesOverAnExistingFile) {
  makeFile("to", "a longer old content");
  EXPECT_TRUE(copyFile(makeFile("from", "new"), at("to")));
  EXPECT_EQ(contentOf(at("to")), "new");
  EXPECT_EQ(contentOf(at("from")), "new");
  EXPECT_FALSE(copyFile(at("missing"), at("to")));
  EXPECT_EQ(contentOf(at("to")), "new");
  EXPECT_TRUE(copyFile(makeFile("empty"), at("to")));
  EXPECT_EQ(contentOf(at("to")), "");
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, SaysWhyACopyFailed) {
  EXPECT_FALSE(copyFile(makeFile("from"), at("missing/to")));
  EXPECT_EQ(platform().linesOfOperations(), Texts{"6 copyFile: copy file " + at("from") +
                                                  " due to error [No such file or directory]"});
}

TEST_F(Files, ACopyThatDoesNotFitIsAnError) {
  makeFile("from", std::string(5000, 'x'));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{4096, before.rlim_max};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const bool copied = copyFile(at("from"), at("to"));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, handler);
  EXPECT_FALSE(copied);
  EXPECT_EQ(platform().linesOfOperations(),
            Texts{"6 copyFile: copy file " + at("from") + " due to error [File too large]"});
}

TEST_F(Files, CopiesNoFifoAndDoesNotWaitForIt) {
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(copyFile(at("pipe"), at("to")));
  EXPECT_FALSE(isThere(at("to")));
  EXPECT_EQ(platform().linesOfOperations(), Texts{"6 copyFile: copy file " + at("pipe") +
                                                  " due to error [Operation not supported]"});
}

TEST_F(Files, ATerminalToCopyDoesNotBecomeTheControllingTerminal) {
  EXPECT_EQ(controllingTerminalAfter([&](const auto& path) { copyFile(path, at("copy")); }),
            "none");
  EXPECT_EQ(controllingTerminalAfter([&](const auto& path) { copyFile(makeFile("file"), path); }),
            "none");
}

TEST_F(Files, CreatesADirectoryWithItsParents) {
  EXPECT_TRUE(createDir(at("a/b/c")));
  EXPECT_TRUE(std::filesystem::is_directory(at("a/b/c")));
  EXPECT_TRUE(createDir(at("a/b/c")));
  EXPECT_TRUE(createDir(makeFile("file")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(Files, SaysWhichDirectoryItCannotCreate) {
  const std::string below = makeFile("file") + "/below";
  EXPECT_FALSE(createDir(below));
  EXPECT_EQ(platform().linesOfOperations(),
            Texts{"6 createDir: Failed to create directory: " + below});
}

// The source would be truncated before it is read.
TEST_F(Files, CopiesNoFileOntoItself) {
  makeFile("file", "content");
  std::filesystem::create_hard_link(at("file"), at("other"));
  EXPECT_FALSE(copyFile(at("file"), at("other")));
  EXPECT_EQ(contentOf(at("file")), "content");
  EXPECT_EQ(platform().lines(), Texts{"6 copy file " + at("file") + " due to error [File exists]"});
}

TEST_F(Files, CopyFollowsLinksOnBothSides) {
  makeFile("from", "new");
  makeFile("to", "old");
  EXPECT_TRUE(copyFile(makeLink("a", "from"), makeLink("b", "to")));
  EXPECT_EQ(contentOf(at("to")), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(at("b")));
}

TEST_F(Files, SizeFollowsLinks) {
  makeFile("file", "12345");
  EXPECT_EQ(getFileSize(makeLink("link", "file")), 5U);
  EXPECT_EQ(getFileSize(at("missing")), 0U);
}

// The result has 32 bits, because callers need only the sizes of small files.
TEST_F(Files, SizePastFourGibibytesIsCut) {
  const std::string file = makeFile("sparse");
  std::error_code error;
  std::filesystem::resize_file(file, (std::uintmax_t{1} << 32) + 5, error);
  if (error) {
    QUILLON_SKIP("the file system keeps no file of 4 GiB: " << error.message());
  }
  EXPECT_EQ(getFileSize(file), 5U);
}

}  // namespace
