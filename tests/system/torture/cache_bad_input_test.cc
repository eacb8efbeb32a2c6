// Tests with cache files of another origin, and with folders and names that are hard to list.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "device_paths.h"
#include "tests/support/sanitized.h"
#include "tests/system/torture/device_main.h"

namespace quillon::torture {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

class CacheBadInput : public DeviceTest {
 protected:
  void expectRightLaunch() const {
    const Launched launched = launch();
    EXPECT_EQ(launched.ending, "");
    EXPECT_EQ(launched.list, expected);
  }

  // Expects that the file is treated as incomplete: the list is built and replaces the file.
  void expectReplaced(const std::string& content) const {
    SCOPED_TRACE(testing::PrintToString(content.substr(0, 40)));
    writeFile(cachePath(), content);
    expectRightLaunch();
    EXPECT_EQ(readFile(cachePath()), whole(expected));
    EXPECT_FALSE(fs::exists(temporaryPath()));
  }

  // Expects that the link is neither followed nor removed, and that the list is correct at every
  // launch.
  void expectLinkStays(const fs::path& link, const fs::path& target) const {
    fs::create_symlink(target, link);
    for (int times = 0; times < 2; ++times) {
      expectRightLaunch();
      EXPECT_EQ(fs::read_symlink(link), target);
    }
  }
};

TEST_F(CacheBadInput, IncompleteFilesAreReplaced) {
  const std::string whole = quillon::torture::whole(expected);
  expectReplaced("");
  expectReplaced("[START]");
  expectReplaced("[END]");
  expectReplaced("[END][START]");
  expectReplaced("[START][END");
  expectReplaced("[start]" + expected + "[end]");
  expectReplaced(whole + "\n");
  expectReplaced(" " + whole);
  expectReplaced(expected + "[END]");
  expectReplaced("[START]" + expected);
  expectReplaced(std::string(whole.size(), '\0'));
  expectReplaced(std::string("\xff\xfe\0[", 4));
}

TEST_F(CacheBadInput, EveryTruncatedFileIsReplaced) {
  const std::string content = whole(expected);
  for (std::size_t size = 0; size < content.size(); size += 1 + size / 3) {
    expectReplaced(content.substr(0, size));
  }
  expectReplaced(content.substr(0, content.size() - 1));
}

TEST_F(CacheBadInput, CompleteFileIsUsedUnchanged) {
  for (const std::string payload : {"/a.dll:/b.dll", "[START]x[END]", ":", "a\nb", " "}) {
    SCOPED_TRACE(payload);
    writeFile(cachePath(), whole(payload));
    EXPECT_EQ(launch().list, payload);
    EXPECT_EQ(readFile(cachePath()), whole(payload));
  }
}

TEST_F(CacheBadInput, CompleteFileWithoutPathsIsAnEmptyList) {
  writeFile(cachePath(), whole(""));
  const Launched launched = launch();
  EXPECT_EQ(launched.ending, "");
  EXPECT_EQ(launched.list, "");
  EXPECT_EQ(readFile(cachePath()), whole(""));
}

TEST_F(CacheBadInput, HugeHoleIsReplaced) {
  writeFile(cachePath(), "[START]");
  fs::resize_file(cachePath(), std::uintmax_t{256} * 1024 * 1024);
  expectRightLaunch();
  EXPECT_EQ(readFile(cachePath()), whole(expected));
}

TEST_F(CacheBadInput, HugeCompleteFileIsUsedCompletely) {
  std::string payload(std::size_t{64} * 1024 * 1024, 'x');
  payload.back() = 'y';
  writeFile(cachePath(), whole(payload));
  const Launched launched = launch();
  EXPECT_EQ(launched.ending, "");
  EXPECT_TRUE(launched.list == payload);
}

TEST_F(CacheBadInput, MoreThanMemoryHoldsIsReplaced) {
  if (isSanitized()) {
    GTEST_SKIP() << "the address sanitizer reserves more memory than the limit allows";
  }
  writeFile(cachePath(), "[START]");
  fs::resize_file(cachePath(), std::uintmax_t{2} * 1024 * 1024 * 1024);
  const Launched launched = launch([] {
    const rlim_t bytes = rlim_t{1024} * 1024 * 1024;
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
  });
  EXPECT_EQ(launched.ending, "");
  EXPECT_EQ(launched.list, expected);
  EXPECT_EQ(readFile(cachePath()), whole(expected));
}

TEST_F(CacheBadInput, LinkToAnIncompleteFileIsNeitherFollowedForWritingNorRemoved) {
  writeFile("/tmp/planted", "precious");
  expectLinkStays(cachePath(), "/tmp/planted");
  EXPECT_EQ(readFile("/tmp/planted"), "precious");
}

TEST_F(CacheBadInput, LinkToNothingIsNeitherFollowedNorRemoved) {
  expectLinkStays(cachePath(), "/tmp/nothing");
  EXPECT_FALSE(fs::exists("/tmp/nothing"));
}

TEST_F(CacheBadInput, LinkToItselfIsNeitherFollowedNorRemoved) {
  expectLinkStays(cachePath(), cachePath());
}

TEST_F(CacheBadInput, LinkAtTheTemporaryNameIsNeitherFollowedNorRemoved) {
  writeFile("/tmp/planted", "precious");
  expectLinkStays(temporaryPath(), "/tmp/planted");
  EXPECT_EQ(readFile("/tmp/planted"), "precious");
  EXPECT_FALSE(fs::exists(cachePath()));
}

TEST_F(CacheBadInput, FolderInTheCachesPlaceStays) {
  fs::create_directory(cachePath());
  for (int times = 0; times < 2; ++times) {
    expectRightLaunch();
    EXPECT_TRUE(fs::is_directory(cachePath()));
    EXPECT_EQ(readFile(temporaryPath()), whole(expected));
  }
}

TEST_F(CacheBadInput, FolderAtTheTemporaryNameStays) {
  fs::create_directory(temporaryPath());
  expectRightLaunch();
  EXPECT_TRUE(fs::is_directory(temporaryPath()));
  EXPECT_FALSE(fs::exists(cachePath()));
}

TEST_F(CacheBadInput, PipeInTheCachesPlaceIsReplaced) {
  ASSERT_EQ(mkfifo(cachePath().c_str(), 0666), 0);
  expectRightLaunch();
  EXPECT_EQ(readFile(cachePath()), whole(expected));
}

TEST_F(CacheBadInput, PipeAtTheTemporaryNameStopsNoLaunch) {
  ASSERT_EQ(mkfifo(temporaryPath().c_str(), 0666), 0);
  for (int times = 0; times < 2; ++times) {
    expectRightLaunch();
  }
  EXPECT_EQ(readFile(cachePath()), whole(expected));
}

TEST_F(CacheBadInput, MissingCacheDirectoryCostsTheCacheOnly) {
  fs::remove(device_paths::kCacheDirectory);
  expectRightLaunch();
  EXPECT_FALSE(fs::exists(device_paths::kCacheDirectory));
  fs::create_directory(device_paths::kCacheDirectory);
}

// Launches of a user with few permissions. The tests must run as root to change to that user.
class CacheOfAnotherUser : public CacheBadInput {
 protected:
  void SetUp() override {
    CacheBadInput::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    const Launched probe = launch(becomeNobody);
    if (probe.ending == "status 77") {
      QUILLON_SKIP("cannot become another user here");
    }
  }

  void TearDown() override {
    if (whyOutside().empty()) {
      fs::permissions(device_paths::kNetcoreapp, fs::perms{0755});
      fs::permissions(device_paths::kCacheDirectory, fs::perms{0755});
    }
  }

  static void becomeNobody() {
    if (setgid(kNobody) != 0 || setuid(kNobody) != 0) {
      _exit(77);
    }
  }

  static Launched launchAsNobody() { return launch(becomeNobody); }
};

TEST_F(CacheOfAnotherUser, UnreadableCacheIsReplacedIfTheFolderAllowsIt) {
  fs::permissions(device_paths::kCacheDirectory, fs::perms{0777});
  writeFile(cachePath(), whole("/not/for/you.dll"));
  fs::permissions(cachePath(), fs::perms::none);
  EXPECT_EQ(launchAsNobody().list, expected);
  EXPECT_EQ(readFile(cachePath()), whole(expected));
}

TEST_F(CacheOfAnotherUser, UnreadableCacheStaysIfTheFolderIsNotWritable) {
  writeFile(cachePath(), whole("/not/for/you.dll"));
  fs::permissions(cachePath(), fs::perms::none);
  for (int times = 0; times < 2; ++times) {
    EXPECT_EQ(launchAsNobody().list, expected);
  }
  EXPECT_EQ(readFile(cachePath()), whole("/not/for/you.dll"));
}

TEST_F(CacheOfAnotherUser, UnwritableFolderCostsTheCacheOnly) {
  EXPECT_EQ(launchAsNobody().list, expected);
  EXPECT_FALSE(fs::exists(temporaryPath()));
}

TEST_F(CacheOfAnotherUser, UnreadableFolderOfAssembliesIsLeftOut) {
  fs::permissions(device_paths::kNetcoreapp, fs::perms::none);
  const Launched launched = launchAsNobody();
  EXPECT_EQ(launched.ending, "");
  ASSERT_TRUE(launched.list);
  EXPECT_THAT(*launched.list, Not(testing::HasSubstr(device_paths::kNetcoreapp)));
  EXPECT_EQ(*launched.list, expected.substr(expected.find(device_paths::kReflectionEliminator)));
}

// A launch does not detect that a folder was skipped, so its list is cached like any other.
TEST_F(CacheOfAnotherUser, ListWithoutAnUnreadableFolderIsServedUntilTheCacheIsRemoved) {
  fs::permissions(device_paths::kCacheDirectory, fs::perms{0777});
  fs::permissions(device_paths::kNetcoreapp, fs::perms::none);
  const auto shortened = launchAsNobody().list;
  fs::permissions(device_paths::kNetcoreapp, fs::perms{0755});
  EXPECT_NE(shortened, expected);
  EXPECT_EQ(launch().list, shortened);
  fs::remove(cachePath());
  EXPECT_EQ(launch().list, expected);
}

class AwkwardNames : public CacheBadInput {
 protected:
  void TearDown() override {
    for (const fs::path& path : made) {
      fs::remove(path);
    }
  }

  void make(const std::string& name) {
    made.push_back(fs::path(device_paths::kTvAppApi) / name);
    writeFile(made.back(), "");
  }

 private:
  std::vector<fs::path> made;
};

TEST_F(AwkwardNames, AreListedAsTheyAreAndSurviveTheCache) {
  for (const char* name : {"with:colon.dll", "line\nbreak.dll", "\r\n.dll", " .dll", "[END].dll",
                           "[START].dll", "%s%n.dll", "\xff\xfe.dll", "-.dll", "a b\t\"'\\.dll"}) {
    make(name);
  }
  const std::string withAll = expectedList();
  ASSERT_NE(withAll, expected);
  for (int times = 0; times < 2; ++times) {
    const Launched launched = launch();
    EXPECT_EQ(launched.ending, "");
    EXPECT_EQ(launched.list, withAll);
  }
  EXPECT_EQ(readFile(cachePath()), whole(withAll));
}

}  // namespace
}  // namespace quillon::torture
