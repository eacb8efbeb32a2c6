#include "quillon/base/folders.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "quillon/base/files.h"

namespace quillon {
namespace {

constexpr int kFlags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kFolderMode = 0755;

bool flushAt(int start, const char* path) {
  const Descriptor folder(openat(start, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0;
}

Descriptor openOrMake(int folder, const char* name, MissingFolder missing) {
  Descriptor opened(openat(folder, name, O_PATH | kFlags));
  if (opened || errno != ENOENT || missing == MissingFolder::kFail) {
    return opened;
  }
  if (mkdirat(folder, name, kFolderMode) != 0 && errno != EEXIST) {
    return Descriptor();
  }
  if (missing == MissingFolder::kMakeAndFlush && !flushAt(folder, ".")) {
    return Descriptor();
  }
  return Descriptor(openat(folder, name, O_PATH | kFlags));
}

}  // namespace

Descriptor openFolderWithoutLinks(int start, const std::filesystem::path& path,
                                  MissingFolder missing) {
  Descriptor folder(openat(start, path.is_absolute() ? "/" : ".", O_PATH | kFlags));
  for (const std::filesystem::path& name : path.relative_path()) {
    if (!folder) {
      return folder;
    }
    if (!name.empty()) {  // the last name of "a/b/" is empty
      folder = openOrMake(folder.get(), name.c_str(), missing);
    }
  }
  return Descriptor(folder ? openat(folder.get(), ".", O_RDONLY | kFlags) : -1);
}

bool makeFolders(const std::filesystem::path& path) {
  std::error_code ignored;
  if (mkdir(path.c_str(), kFolderMode) == 0 || std::filesystem::is_directory(path, ignored)) {
    return true;
  }
  return errno == ENOENT && path.has_parent_path() && makeFolders(path.parent_path()) &&
         (mkdir(path.c_str(), kFolderMode) == 0 || errno == EEXIST);
}

bool flushFolder(const std::filesystem::path& path) { return flushAt(AT_FDCWD, path.c_str()); }

bool replaceFile(int folder, const std::string& name, std::string_view content) {
  constexpr mode_t kMode = 0644;
  const std::string fresh = name + "." + std::to_string(getpid());
  unlinkat(folder, fresh.c_str(), 0);
  const Descriptor file(
      openat(folder, fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
  if (file && writeAll(file.get(), content) &&
      renameat(folder, fresh.c_str(), folder, name.c_str()) == 0) {
    return true;
  }
  const int cause = errno;
  unlinkat(folder, fresh.c_str(), 0);
  errno = cause;
  return false;
}

}  // namespace quillon
