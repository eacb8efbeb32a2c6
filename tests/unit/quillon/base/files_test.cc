#include "quillon/base/files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/temporary_directory.h"

namespace quillon {
namespace {

namespace fs = std::filesystem;

constexpr size_t kLimit = 100;

class Files : public ::testing::Test {
 protected:
  fs::path fileOf(const std::string& content) const {
    const fs::path file = folder_.path() / "file";
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }
  fs::path fifo() const {
    const fs::path file = folder_.path() / "fifo";
    EXPECT_EQ(mkfifo(file.c_str(), 0600), 0);
    return file;
  }
  fs::path linkTo(const fs::path& target) const {
    const fs::path link = folder_.path() / "link";
    fs::create_symlink(target, link);
    return link;
  }
  const fs::path& folder() const { return folder_.path(); }

 private:
  test::TemporaryDirectory folder_;
};

int errorOfReading(const fs::path& file) {
  errno = 0;
  return readWholeFile(file, kLimit) ? 0 : errno;
}

int errorOfAppending(const fs::path& file) {
  errno = 0;
  return openForAppending(file) ? 0 : errno;
}

TEST_F(Files, AreReadUpToTheLimit) {
  for (const std::string& content :
       {std::string(), std::string("a\0b\n", 4), std::string(kLimit, 'x')}) {
    EXPECT_EQ(readWholeFile(fileOf(content), kLimit), content);
  }
  EXPECT_EQ(errorOfReading(fileOf(std::string(kLimit + 1, 'x'))), EFBIG);
}

TEST_F(Files, AboveTheLimitAreNotReadInPart) {
  const fs::path file = fileOf("");
  fs::resize_file(file, std::uintmax_t{1} << 40);  // sparse, so it uses no space
  EXPECT_EQ(errorOfReading(file), EFBIG);
}

TEST_F(Files, ThatAreNotRegularAreNotRead) {
  EXPECT_EQ(errorOfReading(fifo()), EINVAL);
  EXPECT_EQ(errorOfReading(linkTo("/dev/zero")), EINVAL);
  EXPECT_EQ(errorOfReading(folder()), EISDIR);
  EXPECT_EQ(errorOfReading(folder() / "missing"), ENOENT);
}

TEST_F(Files, ThatAreNotRegularAreNotWritten) {
  EXPECT_EQ(errorOfAppending(fifo()), EINVAL);
  EXPECT_EQ(errorOfAppending(linkTo("/dev/null")), EINVAL);
  EXPECT_EQ(errorOfAppending(folder()), EISDIR);
  EXPECT_EQ(errorOfAppending(folder() / "missing" / "file"), ENOENT);
}

TEST_F(Files, AreCreatedAndAppendedTo) {
  const fs::path file = folder() / "new";
  for (const char* text : {"one ", "two"}) {
    ASSERT_TRUE(writeAll(openForAppending(file).get(), text));
  }
  EXPECT_EQ(readWholeFile(file, kLimit), "one two");
}

TEST_F(Files, LockedByAnotherOpenFileAreNotWaitedForWithoutLimit) {
  using std::chrono::milliseconds;
  const fs::path file = fileOf("");
  RegularFile one = openRegularFile(file, kLimit);
  const RegularFile other = openRegularFile(file, kLimit);
  ASSERT_TRUE(lockFile(one.descriptor.get(), milliseconds(0)));
  EXPECT_FALSE(lockFile(other.descriptor.get(), milliseconds(20)));
  EXPECT_EQ(errno, EBUSY);
  one.descriptor.reset();
  EXPECT_TRUE(lockFile(other.descriptor.get(), milliseconds(0)));
  EXPECT_FALSE(lockFile(-1, milliseconds(0)));
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Files, FailuresAreDescribed) {
  EXPECT_EQ(fileErrorText(EINVAL), "not a regular file");
  EXPECT_EQ(fileErrorText(EISDIR), "not a regular file");
  EXPECT_EQ(fileErrorText(EFBIG, kMaxTextSize), "larger than 1 MiB");
  EXPECT_EQ(fileErrorText(ENOENT), "No such file or directory");
}

}  // namespace
}  // namespace quillon
