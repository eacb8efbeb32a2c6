#include "plugin/src/plugin-util/cached_list.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/recording_platform.h"
#include "tests/support/temporary_directory.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CachedListFile : public PlatformTest {
 protected:
  std::string readWith(const std::string& content) {
    std::ofstream(file_, std::ios::binary) << content;
    return read();
  }
  std::string read() {
    return readCachedListOr({file_.c_str(), "torn", "cached"},
                            [] { return std::string("rebuilt"); });
  }

  TemporaryDirectory folder_;
  std::string file_ = (folder_.path() / "list.txt").string();
};

TEST_F(CachedListFile, IsUsedIfComplete) {
  EXPECT_EQ(readWith("[START]/a/A.dll:/b/B.dll[END]"), "/a/A.dll:/b/B.dll");
  EXPECT_THAT(platform().markers, ElementsAre("cached"));
  EXPECT_EQ(readWith("[START][END]"), "");
  EXPECT_EQ(readWith("[START]a\n[END]b[START][END]"), "a\n[END]b[START]");
}

TEST_F(CachedListFile, IsRebuiltSilentlyWhenMissing) {
  EXPECT_EQ(read(), "rebuilt");
  EXPECT_THAT(platform().markers, IsEmpty());
}

TEST_F(CachedListFile, IsRebuiltIfIncomplete) {
  for (const char* content : {"", "[START]", "[END]", "[START]a:b", "a:b[END]", "[start]a[END]",
                              "[START]a[end]", "[START]a[END]\n", "[START[END]", "[STARTEND]"}) {
    platform().reset();
    EXPECT_EQ(readWith(content), "rebuilt") << content;
    EXPECT_THAT(platform().markers, ElementsAre("torn")) << content;
  }
}

TEST_F(CachedListFile, IsRebuiltWhenUnreadable) {
  mkdir(file_.c_str(), 0700);  // exists, but is not a regular file
  EXPECT_EQ(read(), "rebuilt");
  EXPECT_THAT(platform().markers, ElementsAre("torn"));
}

TEST_F(CachedListFile, HoldsAListOfAnyLength) {
  const std::string list(5'000'000, 'x');
  EXPECT_EQ(readWith("[START]" + list + "[END]"), list);
}

}  // namespace
}  // namespace quillon::test
