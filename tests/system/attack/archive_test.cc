// A launcher that is linked with the plug-in's archive, so that the plug-in's own file is the
// launcher's. dladdr(3) returns argv[0] as its path, which the process that started it chose.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <openssl/opensslv.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "quillon_tv_plugin.h"
#include "tests/support/temporary_directory.h"

namespace {

using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

char** arguments = nullptr;
std::string folderOfArgv0;
std::vector<std::string> loaded;

}  // namespace

// The system has no libcrypto.
int access(const char* path, int mode) noexcept {
  const std::string_view file(path);
  if (file.find("/libcrypto.so.") != std::string_view::npos && !file.starts_with(folderOfArgv0)) {
    errno = ENOENT;
    return -1;
  }
  return faccessat(AT_FDCWD, path, mode, 0);
}

void* dlopen(const char* path, int mode) noexcept {
  loaded.emplace_back(path != nullptr ? path : "");
  static const auto next = reinterpret_cast<decltype(&dlopen)>(dlsym(RTLD_NEXT, "dlopen"));
  return next(path, mode);
}

namespace quillon::test {
namespace {

TEST(ArchiveAttack, NoLibraryInTheFolderOfArgv0IsTheVerifier) {
  const TemporaryDirectory folder;
  folderOfArgv0 = folder.path();
  const std::string file = "libcrypto.so." + std::to_string(OPENSSL_SHLIB_VERSION);
  for (const std::string& name :
       {file, std::string(QUILLON_PARTNER_REQUEST), std::string(QUILLON_PARTNER_SIGNATURE)}) {
    std::ofstream(folder.path() / name) << "content";
  }
  std::string launcher = folder.path() / "launcher";
  arguments[0] = launcher.data();

  EXPECT_FALSE(check_signature(folder.path().c_str()));
  EXPECT_THAT(loaded, Not(IsEmpty()));
  EXPECT_THAT(loaded, Each(Not(StartsWith(folder.path().string()))));
}

}  // namespace
}  // namespace quillon::test

int main(int count, char** values) {
  arguments = values;
  ::testing::InitGoogleMock(&count, values);
  return RUN_ALL_TESTS();
}
