// Files that are put in the place of a launch profile, or of a file that it names, while a launch
// opens it. The test's own process acts as the attacker, inside of open(2).
#include "quillon/prefetch/launch_profile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <string>

#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/read_ahead.h"
#include "tests/support/next_call.h"
#include "tests/support/temporary_directory.h"

namespace {

// A file that replaces another one before that is opened for the last of some times.
struct Replacement {
  std::string from;
  std::string to;
  int times = 1;
};
Replacement replacement;

}  // namespace

extern "C" int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (path == replacement.to && --replacement.times == 0) {
    rename(replacement.from.c_str(), path);
  }
  using Open = int (*)(const char*, int, mode_t);
  return quillon::test::next<Open>("open")(path, flags, mode);
}

namespace quillon::prefetch {
namespace {

namespace fs = std::filesystem;

class ReplacedFile : public ::testing::Test {
 protected:
  ~ReplacedFile() override { replacement = {}; }
  std::string path(const char* name) const { return directory_.path() / name; }
  static void write(const std::string& file, const std::string& content) {
    fs::create_directories(fs::path(file).parent_path());
    std::ofstream(file) << content;
  }
  // Whether the device root's profile is read if that file replaces it.
  bool isReadFrom(const std::string& file) const {
    replacement = {};
    const std::string profile = path("device") + profileFolder() + "/app";
    write(profile, format({}));
    EXPECT_TRUE(readProfile("app", path("device")));
    replacement = {file, profile};
    return readProfile("app", path("device")).has_value();
  }

 private:
  test::TemporaryDirectory directory_;
};

TEST_F(ReplacedFile, IsNoProfileIfOthersMayWriteToIt) {
  write(path("file"), format({}));
  EXPECT_TRUE(isReadFrom(path("file")));
  write(path("file"), format({}));
  ASSERT_EQ(chmod(path("file").c_str(), 0666), 0);
  EXPECT_FALSE(isReadFrom(path("file")));
}

TEST_F(ReplacedFile, IsNotReadBeyondTheLimit) {
  write(path("file"), "");
  fs::resize_file(path("file"), std::uintmax_t{1} << 40);
  EXPECT_FALSE(isReadFrom(path("file")));
}

TEST_F(ReplacedFile, IsNotThatOfTheProfile) {
  write(path("named"), "1");
  write(path("other"), "12");
  struct stat status {};
  ASSERT_EQ(stat(path("named").c_str(), &status), 0);
  const LaunchProfile profile{{{path("named"), versionOf(status), {{0, 1}}}}};
  EXPECT_EQ(stateOf(profile), ProfileState::kWarm);
  replacement = {path("other"), path("named"), 2};  // opened as the first and the longest file
  EXPECT_EQ(stateOf(profile), ProfileState::kOutdated);
}

}  // namespace
}  // namespace quillon::prefetch
