// What another user can do in the folders of a device root that a launch makes.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/support/skip.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kAssembly = "/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll";
constexpr char kResolutions[] = "/opt/usr/share/quillon/resolutions";

class WritableFolders : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    makeDevice();
    // Built for an older framework, so that the launch stores an answer about it.
    const fs::path config = at(fs::path(kAssembly).replace_extension(".runtimeconfig.json"));
    std::string text = contentOf(config);
    const std::string version = "\"version\": \"";
    ASSERT_NE(text.find(version), std::string::npos) << text;
    write(config,
          text.replace(text.find(version), version.size(), version + "8.0.0\", \"was\": \""));
  }
  fs::path answer() const { return at(kResolutions + kAssembly); }
};

mode_t modeOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode;
}

TEST_F(WritableFolders, AreNotMadeByALaunchWithAnOpenUmask) {
  fs::remove_all(at(kResolutions));
  fs::remove_all(at("/opt/usr/share/quillon/processes"));
  const mode_t before = umask(0);
  EXPECT_EQ(launch({kClock, "--direct"}).status, 0);
  umask(before);
  EXPECT_TRUE(fs::exists(answer()));
  EXPECT_TRUE(fs::exists(at("/opt/usr/home/owner/share/dotnet/launch-profiles")));
  EXPECT_TRUE(fs::exists(at("/opt/usr/share/quillon/processes")));
  for (const auto& entry : fs::recursive_directory_iterator(root())) {
    const mode_t mode = modeOf(entry);
    const bool isShared = (mode & S_ISVTX) != 0;  // nobody replaces files of others there
    const bool isList = entry.path().extension() == ".txt";  // the plug-in's, which has the umask
    if (!S_ISLNK(mode) && !S_ISFIFO(mode) && !isShared && !isList) {
      EXPECT_EQ(mode & (S_IWGRP | S_IWOTH), 0U) << entry.path();
    }
  }
}

// An answer names assemblies that the application trusts.
TEST_F(WritableFolders, AnAnswerOfAnotherUserIsNotUsed) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can give a file away");
  }
  EXPECT_THAT(launch({kClock, "--direct"}).err, HasSubstr("was built for"));
  std::string forged = contentOf(answer());
  const std::string word = "was built for";
  ASSERT_NE(forged.find(word), std::string::npos) << forged;
  write(answer(), forged.replace(forged.find(word), word.size(), "was forged for"));
  EXPECT_THAT(launch({kClock, "--direct"}).err, HasSubstr("was forged for"));
  constexpr uid_t kAnotherUser = 54321;
  ASSERT_EQ(chown(answer().c_str(), kAnotherUser, kAnotherUser), 0);
  EXPECT_THAT(launch({kClock, "--direct"}).err, Not(HasSubstr("forged")));
  EXPECT_THAT(contentOf(answer()), Not(HasSubstr("forged")));
}

// As in a device root that belongs to another user, who decides about the application, too.
TEST_F(WritableFolders, AnAnswerOfTheApplicationsOwnerIsUsed) {
  if (geteuid() != 0) {
    QUILLON_SKIP("only root can give a file away");
  }
  EXPECT_EQ(launch({kClock, "--direct"}).status, 0);
  constexpr uid_t kOwner = 54321;
  ASSERT_EQ(chown(answer().c_str(), kOwner, kOwner), 0);
  ASSERT_EQ(chown(at(kAssembly).c_str(), kOwner, kOwner), 0);
  const auto written = fs::last_write_time(answer());
  EXPECT_EQ(launch({kClock, "--direct"}).status, 0);
  EXPECT_EQ(fs::last_write_time(answer()), written);
}

}  // namespace
}  // namespace quillon::test
