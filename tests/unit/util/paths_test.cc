#include "util/zq_utils/paths.h"

#include <unistd.h>

#include <climits>

#include "platform/dlog.h"
#include "tests/support/tree_test.h"
#include "tests/unit/util/scripted_files.h"

using quillon::test::files;
using quillon::test::platform;
using quillon::test::TreeTest;

namespace {

using Texts = std::vector<std::string>;

Texts split(const std::string& paths) {
  Texts pieces;
  splitPath(paths, pieces);
  return pieces;
}

TEST(Paths, FileNameIsWhatFollowsTheLastSlash) {
  EXPECT_EQ(getFileName("/a/b.dll"), "b.dll");
  EXPECT_EQ(getFileName("/a/b/"), "");
  EXPECT_EQ(getFileName("b.dll"), "b.dll");
  EXPECT_EQ(getFileName(""), "");
}

TEST(Paths, BaseNameIsTheDirectory) {
  EXPECT_EQ(getBaseName("/a/b.dll"), "/a");
  EXPECT_EQ(getBaseName("b.dll"), ".");
  EXPECT_EQ(getBaseName("/b.dll"), "");
  EXPECT_EQ(getBaseName("/a/"), "/a");
}

TEST(Paths, ConcatenationHasOneSlash) {
  EXPECT_EQ(concatPath("/a/", "b"), "/a/b");
  EXPECT_EQ(concatPath("/a", "b"), "/a/b");
  EXPECT_EQ(concatPath("/", "b"), "/b");
}

TEST(Paths, SplitKeepsEmptyPiecesButNoFinalOne) {
  EXPECT_EQ(split("a::b:"), (Texts{"a", "", "b"}));
  EXPECT_EQ(split(":a"), (Texts{"", "a"}));
  EXPECT_EQ(split(":"), Texts{""});
  EXPECT_EQ(split(""), Texts{});
  EXPECT_EQ(split("a\nb:c"), (Texts{"a\nb", "c"}));
}

TEST(Paths, SplitAppends) {
  Texts pieces{"there"};
  splitPath("a:b", pieces);
  EXPECT_EQ(pieces, (Texts{"there", "a", "b"}));
}

TEST(Paths, ReplaceResumesAfterTheReplacement) {
  EXPECT_EQ(replaceAll("aXbX", "X", "YX"), "aYXbYX");
  EXPECT_EQ(replaceAll("aaa", "aa", "b"), "ba");
  EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
  EXPECT_EQ(replaceAll("abc", "c", ""), "ab");
}

TEST(Paths, PrefixAndSuffixMindTheCase) {
  EXPECT_TRUE(startWith("/usr/bin", "/usr/"));
  EXPECT_FALSE(startWith("/USR/bin", "/usr/"));
  EXPECT_FALSE(startWith("/us", "/usr/"));
  EXPECT_TRUE(endWith("a[END]", "[END]"));
  EXPECT_FALSE(endWith("a[end]", "[END]"));
  EXPECT_FALSE(endWith("END]", "[END]"));
}

TEST(Paths, ComparisonIgnoresCaseWithinBounds) {
  EXPECT_TRUE(iCompare("a.NI.dll", 1, ".ni", 0, 3));
  EXPECT_FALSE(iCompare("a.no.dll", 1, ".ni", 0, 3));
  EXPECT_TRUE(iCompare("ab", 2, "", 0, 0));
  EXPECT_FALSE(iCompare("ab", 1, "ab", 0, 2));
  EXPECT_FALSE(iCompare("ab", 3, "ab", 0, 0));
  EXPECT_FALSE(iCompare("ab", 0, "ab", 1, std::string::npos));
  EXPECT_FALSE(iCompare("abc", 0, "ab", 0, 3));
  EXPECT_FALSE(iCompare("ab", 0, "ab", 1, 2));
  EXPECT_FALSE(iCompare("ab", 0, "a", 2, 0));
  EXPECT_FALSE(iCompare("ab", 1, std::string("b\0", 2), 0, 2));
}

class PathsOnDisk : public TreeTest {};

TEST_F(PathsOnDisk, AbsolutePathResolvesLinks) {
  const std::string real = getAbsolutePath(makeDirectory("real"));
  makeLink("link", "real");
  EXPECT_EQ(getAbsolutePath(at("link/../link/")), real);
  EXPECT_EQ(getAbsolutePath(at("missing")), "");
  EXPECT_EQ(getAbsolutePath(""), "");
}

TEST_F(PathsOnDisk, RealPathRefusesLinksAndOnlyLinks) {
  EXPECT_TRUE(isRealPath(makeFile("file")));
  EXPECT_TRUE(isRealPath(makeDirectory("directory")));
  EXPECT_TRUE(platform().log.empty());
  const std::string link = makeLink("link", "file");
  EXPECT_FALSE(isRealPath(link));
  EXPECT_EQ(platform().lines(), Texts{"6 Symbolic link is detected : " + link});
  EXPECT_EQ(platform().log[0].file(), "zq_utils.cc");
  EXPECT_EQ(platform().log[0].colour(), "\x1b[31m");
}

TEST_F(PathsOnDisk, RealPathRefusesADanglingLink) { EXPECT_FALSE(isRealPath(makeLink("l", "no"))); }

TEST_F(PathsOnDisk, RealPathLooksAtTheLastComponentOnly) {
  makeFile("directory/file");
  makeLink("link", "directory");
  EXPECT_TRUE(isRealPath(at("link/file")));
  EXPECT_TRUE(platform().log.empty());
}

TEST_F(PathsOnDisk, RealPathAcceptsWhatIsNotThere) {
  EXPECT_TRUE(isRealPath(at("missing")));
  EXPECT_EQ(platform().lines(),
            Texts{"3 File does not exist. No need to check symbolic links. ###"});
  EXPECT_EQ(platform().log[0].colour(), "\x1b[0m");
}

TEST_F(PathsOnDisk, RealPathRefusesWhatCannotBeExamined) {
  EXPECT_FALSE(isRealPath(makeFile("file") + "/below"));
  EXPECT_FALSE(isRealPath(""));
  EXPECT_EQ(platform().lines(), (Texts{"6 lstat error.", "6 Path is empty"}));
}

TEST_F(PathsOnDisk, PrintAllWritesOneGreyLineForEachPiece) {
  printAll("a::100%s:");
  ASSERT_EQ(platform().log.size(), 3U);
  EXPECT_EQ(platform().messages(DLOG_DEBUG), (Texts{"a", "", "100%s"}));
  EXPECT_EQ(platform().log[0].colour(), "\x1b[90m");
  EXPECT_EQ(platform().log[0].file(), "zq_utils.cc");
  EXPECT_EQ(platform().log[0].function(), "printAll");
}

TEST(SelfPath, NamesTheRunningProgram) {
  EXPECT_EQ(readSelfPath(), std::filesystem::read_symlink("/proc/self/exe").string());
}

TEST(SelfPath, MayHaveTheGreatestLength) {
  const std::string longest = "/" + std::string(PATH_MAX - 2, 'n');  // and a NUL: PATH_MAX bytes
  files().program = longest;
  EXPECT_EQ(readSelfPath(), longest);
  files() = {};
}

}  // namespace
