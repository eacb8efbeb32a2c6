#include "packages/folder_tree.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "path_failure.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"

namespace quillon::workstation {
namespace {

namespace fs = std::filesystem;

constexpr int kMaxDepth = 100;
constexpr mode_t kPermissions = 0777;
// Ends the removal of a folder that another process fills all the time.
constexpr int kMaxRemovalRounds = 10'000;
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A file of the tree that is copied: its name, the open folder that it is in, and its path.
struct Source {
  int folder;
  std::string name;
  fs::path path;
};

tl::unexpected<Failure> cannotCopy(const Source& source) {
  return failAt("cannot copy", source.path,
                "check that the files are readable and that the device root has space");
}

tl::unexpected<Failure> unsupported(const Source& source) {
  return fail("cannot copy '" + source.path.string() +
                  "': it is neither a regular file nor a folder nor a symbolic link",
              "remove it from the package's files");
}

// Fails at once if the file is larger than the free space, instead of filling the disk first: a
// sparse file of any size may be in the package.
bool hasSpaceFor(int target, off_t size) {
  struct statvfs space {};
  if (fstatvfs(target, &space) != 0 || space.f_blocks == 0) {
    return true;  // unknown
  }
  if (static_cast<unsigned long>(size) / space.f_frsize <= space.f_bavail) {
    return true;
  }
  errno = ENOSPC;
  return false;
}

bool copyBytes(int from, int to, off_t size) {
  std::array<char, 64 << 10> part;
  while (size > 0) {
    const auto wanted = std::min(part.size(), static_cast<size_t>(size));
    const ssize_t length = read(from, part.data(), wanted);
    if (length == 0) {
      return true;
    }
    if (length < 0 && errno == EINTR) {
      continue;
    }
    if (length < 0 || !writeAll(to, {part.data(), static_cast<size_t>(length)})) {
      return false;
    }
    size -= length;
  }
  return true;
}

Expected<void> copyFile(const Source& source, int to) {
  // O_NONBLOCK, since the file may have become a FIFO.
  const Descriptor from(openat(source.folder, source.name.c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!from || fstat(from.get(), &status) != 0) {
    return cannotCopy(source);
  }
  if (!S_ISREG(status.st_mode)) {
    return unsupported(source);
  }
  constexpr mode_t kMode = 0600;
  Descriptor copy(openat(to, source.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kMode));
  if (!copy || !hasSpaceFor(copy.get(), status.st_size) ||
      !copyBytes(from.get(), copy.get(), status.st_size) ||
      fchmod(copy.get(), status.st_mode & kPermissions) != 0 || fsync(copy.get()) != 0 ||
      close(copy.release()) != 0) {
    return cannotCopy(source);
  }
  return {};
}

Expected<void> copyLink(const Source& source, int to) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length =
      readlinkat(source.folder, source.name.c_str(), target.data(), target.size() - 1);
  if (length < 0 || symlinkat(target.data(), to, source.name.c_str()) != 0) {
    return cannotCopy(source);
  }
  return {};
}

Expected<void> copyContents(int from, int to, const fs::path& path, int depth);

Expected<void> copyFolder(const Source& source, int to, mode_t mode, int depth) {
  if (depth >= kMaxDepth) {
    return fail("cannot copy '" + source.path.string() + "': it is more than " +
                    std::to_string(kMaxDepth) + " folders deep",
                "move it up in the package's files");
  }
  const char* const name = source.name.c_str();
  const Descriptor from(openat(source.folder, name, kOpenFolder));
  const mode_t copyMode = (mode & kPermissions) | S_IRWXU;
  if (!from || mkdirat(to, name, copyMode) != 0) {
    return cannotCopy(source);
  }
  const Descriptor copy(openat(to, name, kOpenFolder));
  if (!copy || fchmod(copy.get(), copyMode) != 0) {  // whatever the umask is
    return cannotCopy(source);
  }
  return copyContents(from.get(), copy.get(), source.path, depth + 1);
}

Expected<void> copyEntry(const Source& source, int to, int depth) {
  struct stat status {};
  if (fstatat(source.folder, source.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return cannotCopy(source);
  }
  switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
      return copyFolder(source, to, status.st_mode, depth);
    case S_IFLNK:
      return copyLink(source, to);
    case S_IFREG:
      return copyFile(source, to);
    default:
      return unsupported(source);
  }
}

Expected<void> copyContents(int from, int to, const fs::path& path, int depth) {
  errno = 0;
  const std::vector<std::string> names = directoryEntries(from);
  if (errno != 0) {
    return failAt("cannot list", path, "check that the folder is readable");
  }
  for (const std::string& name : names) {
    RETURN_IF_FAILED(copyEntry({from, name, path / name}, to, depth));
  }
  if (fsync(to) != 0) {
    return failAt("cannot copy", path, "check that the device root has space");
  }
  return {};
}

// The names in the open folder at the time of the call, however often it is called.
std::vector<std::string> namesIn(int folder) {
  const Descriptor again(openat(folder, ".", kOpenFolder));
  return directoryEntries(again.get());
}

// Opens a folder in order to remove it. Its owner may have taken the rights from everyone: they are
// changed through the descriptor, so that no symbolic link is followed.
Descriptor openForRemoval(int folder, const char* name) {
  const Descriptor path(openat(folder, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!path) {
    return Descriptor();
  }
  chmod(("/proc/self/fd/" + std::to_string(path.get())).c_str(), S_IRWXU);
  return Descriptor(openat(path.get(), ".", kOpenFolder));
}

bool isRemoved(int folder, const char* name) {
  return unlinkat(folder, name, 0) == 0 || errno == ENOENT;
}

// Renames the folder `name` in `folder` to a number in `top`. The kernel requires the right to
// write to the folder itself.
bool moveUp(int folder, const char* name, int top, unsigned& number) {
  openForRemoval(folder, name);
  int result = 0;
  do {
    result = renameat2(folder, name, top, std::to_string(++number).c_str(), RENAME_NOREPLACE);
  } while (result != 0 && errno == EEXIST);
  return result == 0;
}

// Removes a folder in `top`, and moves the folders inside it up to `top`.
bool removeOneLevel(int top, const char* name, unsigned& number) {
  const Descriptor folder = openForRemoval(top, name);
  if (!folder) {
    return errno == ENOENT;
  }
  for (const std::string& inner : namesIn(folder.get())) {
    if (isRemoved(folder.get(), inner.c_str())) {
      continue;
    }
    if (errno != EISDIR || !moveUp(folder.get(), inner.c_str(), top, number)) {
      return false;
    }
  }
  return unlinkat(top, name, AT_REMOVEDIR) == 0;
}

}  // namespace

Expected<void> copyTree(int from, int to, const fs::path& path) {
  return copyContents(from, to, path, 0);
}

// Does not recurse: otherwise the depth of the tree would be limited by the stack and by the number
// of open files.
bool removeTree(int folder, const std::string& name) {
  if (isRemoved(folder, name.c_str())) {
    return true;
  }
  if (errno != EISDIR) {
    return false;
  }
  const Descriptor top = openForRemoval(folder, name.c_str());
  if (!top) {
    return errno == ENOENT;
  }
  unsigned number = 0;
  auto names = namesIn(top.get());
  for (int round = 0; round < kMaxRemovalRounds && !names.empty(); ++round) {
    for (const std::string& inner : names) {
      if (!isRemoved(top.get(), inner.c_str()) &&
          (errno != EISDIR || !removeOneLevel(top.get(), inner.c_str(), number))) {
        return false;
      }
    }
    names = namesIn(top.get());
  }
  return unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0;
}

}  // namespace quillon::workstation
