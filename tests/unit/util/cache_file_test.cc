#include "util/zq_utils/cache_file.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/dlog.h"
#include "tests/support/tree_test.h"
#include "tests/unit/util/scripted_files.h"

using quillon::test::files;
using quillon::test::NotedFiles;
using quillon::test::platform;
using quillon::test::TreeTest;

namespace {

using Texts = std::vector<std::string>;

class CacheFile : public TreeTest {
 protected:
  std::string directory() const { return at("") /* ends with "/" */; }
  void save(const std::string& content) const { writeStringToFile(directory(), "L.txt", content); }
};

TEST(CacheMarks, MakeAFileComplete) {
  EXPECT_FALSE(isCrashed("[START]a:b[END]"));
  EXPECT_FALSE(isCrashed("[START][END]"));
  EXPECT_FALSE(isCrashed("[START]a\n[START][END]:b[END]"));
}

TEST(CacheMarks, FileIsIncompleteIfEitherIsMissing) {
  for (const char* torn : {"", "[START]a:b", "a:b[END]", "[start]a[END]", "[START]a[end]",
                           "[START]a[END]\n", " [START]a[END]", "[START", "[START]"}) {
    EXPECT_TRUE(isCrashed(torn)) << torn;
  }
}

TEST_F(CacheFile, ReadsEveryByte) {
  const std::string bytes("a\0\r\n\x1a\xff", 6);
  EXPECT_EQ(readFileToString(makeFile("bytes", bytes)), bytes);
  EXPECT_EQ(readFileToString(makeFile("empty")), "");
  const std::string large(3'000'001, 'x');
  EXPECT_EQ(readFileToString(makeFile("large", large)), large);
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CacheFile, ReadsFilesThatDoNotTellTheirSize) {
  EXPECT_EQ(readFileToString("/proc/self/cmdline"), contentOf("/proc/self/cmdline"));
}

TEST_F(CacheFile, ProgramsDoNotInheritTheFileThatItReads) {
  const std::string file = makeFile("file", "content");
  files().wasInherited = false;
  EXPECT_EQ(readFileToString(file), "content");
  EXPECT_FALSE(files().wasInherited);
}

// Another process may write to the file meanwhile.
TEST_F(CacheFile, ReadsAllOfAFileThatHasAnotherSizeThanItTells) {
  for (const std::string& content :
       {std::string("x"), std::string("12345"), std::string(9000, 'y')}) {
    const std::string file = makeFile("file", content);
    for (const off_t size : {1, 3, 4, 5, 6, 100, 4096, 8999, 9000, 9001, 20000}) {
      files().reportedSize = size;
      EXPECT_TRUE(readFileToString(file) == content) << size;
      files().reportedSize.reset();
    }
  }
}

// The kernel gives such a file in pieces. That of a stopped process does not change meanwhile.
TEST_F(CacheFile, ReadsALargeFileThatDoesNotTellItsSize) {
  const pid_t stopped = fork();
  if (stopped == 0) {
    raise(SIGSTOP);
    _exit(0);
  }
  waitpid(stopped, nullptr, WUNTRACED);
  const std::string file = "/proc/" + std::to_string(stopped) + "/maps";
  const std::string content = contentOf(file);
  EXPECT_GT(content.size(), 4096U);
  EXPECT_TRUE(readFileToString(file) == content);
  kill(stopped, SIGKILL);
  waitpid(stopped, nullptr, 0);
}

TEST_F(CacheFile, ReadsNothingFromWhatCannotBeRead) {
  EXPECT_EQ(readFileToString(at("missing")), "");
  EXPECT_EQ(readFileToString(makeDirectory("directory")), "");
  EXPECT_EQ(readFileToString(makeFile("file") + "/below"), "");
  EXPECT_EQ(readFileToString(""), "");
  ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
  EXPECT_EQ(readFileToString(at("pipe")), "");
  EXPECT_EQ(readFileToString("/proc/self/mem"), "");  // can be opened, but not read
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(CacheFile, WaitsForNoReaderOfAPipeInItsPlace) {
  ASSERT_EQ(mkfifo(at("temp_L.txt").c_str(), 0600), 0);
  save(std::string(1 << 20, 'x'));  // more than a pipe holds
  EXPECT_TRUE(isThere(at("L.txt")));
}

TEST_F(CacheFile, WritesTheContentAndNothingElse) {
  save("[START]a:b[END]");
  EXPECT_EQ(contentOf(at("L.txt")), "[START]a:b[END]");
  EXPECT_FALSE(isThere(at("temp_L.txt")));
  EXPECT_EQ(platform().lines(),
            (Texts{"3 File does not exist. No need to check symbolic links. ###",
                   "3 File does not exist. No need to check symbolic links. ###",
                   "3 Save File : " + at("L.txt"), "3 Saved"}));
  EXPECT_EQ(platform().log[2].file(), "zq_utils.cc");
  EXPECT_EQ(platform().log[2].function(), "writeStringToFile");
  EXPECT_EQ(platform().log[2].colour(), "\x1b[0m");
}

TEST_F(CacheFile, ReplacesFileAndLeftOverTemporary) {
  makeFile("L.txt", std::string(10'000, 'o'));
  makeFile("temp_L.txt", std::string(20'000, 't'));
  save("[START]%s%n[END]");
  EXPECT_EQ(contentOf(at("L.txt")), "[START]%s%n[END]");
  EXPECT_FALSE(isThere(at("temp_L.txt")));
}

TEST_F(CacheFile, IsTwelveBytesLongerThanItsPayload) {
  const std::string payload(100'000, 'p');
  save("[START]" + payload + "[END]");
  EXPECT_EQ(std::filesystem::file_size(at("L.txt")), payload.size() + 12);
}

TEST_F(CacheFile, StopsAtTheFirstNul) {
  save(std::string("ab\0cd", 5));
  EXPECT_EQ(contentOf(at("L.txt")), "ab");
}

TEST_F(CacheFile, TakesItsPermissionsFromTheUmask) {
  const mode_t before = umask(027);
  save("x");
  umask(before);
  struct stat status;
  ASSERT_EQ(stat(at("L.txt").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(CacheFile, DoesNotFollowALinkAtItsName) {
  makeFile("victim", "kept");
  makeLink("L.txt", at("victim"));
  save("new");
  EXPECT_EQ(contentOf(at("victim")), "kept");
  EXPECT_TRUE(std::filesystem::is_symlink(at("L.txt")));
  EXPECT_FALSE(isThere(at("temp_L.txt")));
  EXPECT_EQ(platform().messages(DLOG_ERROR), Texts{"Symbolic link is detected : " + at("L.txt")});
}

TEST_F(CacheFile, DoesNotFollowALinkAtTheTemporaryName) {
  makeFile("victim", "kept");
  makeLink("temp_L.txt", at("victim"));
  save("new");
  EXPECT_EQ(contentOf(at("victim")), "kept");
  EXPECT_TRUE(std::filesystem::is_symlink(at("temp_L.txt")));
  EXPECT_FALSE(isThere(at("L.txt")));
  EXPECT_EQ(platform().lines(), Texts{"6 Symbolic link is detected : " + at("temp_L.txt")});
}

TEST_F(CacheFile, SaysThatItCannotOpen) {
  writeStringToFile(at("missing/"), "L.txt", "x");
  EXPECT_EQ(platform().messages(DLOG_ERROR), Texts{"Fail to write string to file - open error"});
  EXPECT_FALSE(isThere(at("missing")));
}

TEST_F(CacheFile, LeavesTheTemporaryFileIfTheRenameFails) {
  makeFile("L.txt/occupied");
  save("x");
  EXPECT_EQ(contentOf(at("temp_L.txt")), "x");
  EXPECT_EQ(platform().lines().back(), "3 Save File : " + at("L.txt"));
  EXPECT_TRUE(platform().messages(DLOG_ERROR).empty());
}

// A launch can be killed between any two of the calls.
TEST_F(CacheFile, IsWrittenInAnOrderThatNeverShowsHalfAList) {
  {
    const NotedFiles noted;
    save("[START]" + std::string(1000, 'a') + "[END]");  // long enough to need its own buffer
  }
  EXPECT_EQ(quillon::test::files().calls,
            (Texts{"lstat temp_L.txt", "lstat L.txt", "fopen temp_L.txt w+", "fsync 1012", "fclose",
                   "rename temp_L.txt L.txt", "sync"}));
}

TEST_F(CacheFile, IsFlushedToTheDiskEvenIfTheRenameFails) {
  {
    const NotedFiles noted(EACCES);
    save("x");
  }
  EXPECT_EQ(quillon::test::files().calls.at(5), "rename temp_L.txt L.txt");
  EXPECT_EQ(quillon::test::files().calls.back(), "sync");
  EXPECT_EQ(platform().lines().back(), "3 Save File : " + at("L.txt"));
}

TEST_F(CacheFile, NeitherOpensNorSyncsIfANameIsALink) {
  makeLink("L.txt", "elsewhere");
  {
    const NotedFiles noted;
    save("x");
  }
  EXPECT_EQ(quillon::test::files().calls, (Texts{"lstat temp_L.txt", "lstat L.txt"}));
}

TEST_F(CacheFile, OfADeviceThatNeverEndsIsNothing) {
  EXPECT_EQ(readFileToString(makeLink("zero", "/dev/zero")), "");
  EXPECT_TRUE(platform().log.empty());
}

}  // namespace
