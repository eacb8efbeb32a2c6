#include "quillon/base/folders.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace quillon {
namespace {

constexpr int kFlags = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Descriptor openOrMake(int folder, const char* name, MissingFolder missing) {
  Descriptor opened(openat(folder, name, O_PATH | kFlags));
  if (opened || errno != ENOENT || missing == MissingFolder::kFail) {
    return opened;
  }
  constexpr mode_t kMode = 0777;
  if (mkdirat(folder, name, kMode) != 0 && errno != EEXIST) {
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

}  // namespace quillon
