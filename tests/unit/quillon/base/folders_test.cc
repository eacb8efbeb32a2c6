#include "quillon/base/folders.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/temporary_directory.h"

namespace quillon {
namespace {

mode_t modeOfNewFolder(mode_t mask, MissingFolder missing) {
  const test::TemporaryDirectory parent;
  const mode_t before = umask(mask);
  const Descriptor made = openFolderWithoutLinks(AT_FDCWD, parent.path() / "a/b", missing);
  umask(before);
  struct stat status {};
  EXPECT_EQ(fstat(made.get(), &status), 0);
  struct stat outer {};
  EXPECT_EQ(stat((parent.path() / "a").c_str(), &outer), 0);
  EXPECT_EQ(outer.st_mode, status.st_mode);
  return status.st_mode & 07777U;
}

// With an open umask, another user could otherwise replace what is in the folder.
TEST(Folders, AreNeverMadeWritableForOthers) {
  for (const MissingFolder missing : {MissingFolder::kMake, MissingFolder::kMakeAndFlush}) {
    EXPECT_EQ(modeOfNewFolder(0, missing), 0755U);
    EXPECT_EQ(modeOfNewFolder(002, missing), 0755U);
    EXPECT_EQ(modeOfNewFolder(077, missing), 0700U);
  }
}

}  // namespace
}  // namespace quillon
