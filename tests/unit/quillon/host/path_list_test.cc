#include "quillon/host/assemblies/path_list.h"

#include <gmock/gmock.h>

namespace quillon::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(PathList, SplitsWithoutEmptyEntries) {
  EXPECT_THAT(splitList(":/a::/b:"), ElementsAre("/a", "/b"));
  EXPECT_THAT(splitList(""), IsEmpty());
  EXPECT_THAT(splitList("::"), IsEmpty());
  EXPECT_THAT(splitList("/a"), ElementsAre("/a"));
}

TEST(PathList, JoinsWithoutSeparatorsAtTheEnds) {
  EXPECT_EQ(joinList({"/a", "/b"}), "/a:/b");
  EXPECT_EQ(joinList({}), "");
}

TEST(PathList, FindsPathsThatCannotBeEntries) {
  EXPECT_TRUE(containsSeparator("/a:b"));
  EXPECT_FALSE(containsSeparator("/a b"));
}

TEST(DirectoryList, KeepsTheFirstOfEachDirectoryInOrder) {
  DirectoryList list;
  list.addAll({"/b/", "/a", "/b", "/a/", "/a//", "/"});
  EXPECT_THAT(list.entries(), ElementsAre("/b/", "/a", "/"));
}

TEST(DirectoryList, LeavesOutEmptyAndRelativeEntries) {
  DirectoryList list;
  list.addAll({"", "a/b", "/c"});
  EXPECT_THAT(list.entries(), ElementsAre("/c"));
  EXPECT_THAT(list.ignored(), ElementsAre("a/b"));
}

}  // namespace
}  // namespace quillon::host
