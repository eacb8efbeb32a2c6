#include "util/zq_utils/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>

#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/file_status.h"

namespace fs = boost::filesystem;

namespace {

// With O_NONBLOCK, opening a FIFO does not wait for its other end (fifo(7)).
constexpr int kOpenFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool fail(int error) {
  errno = error;
  return false;
}

// Returns false and sets errno on failure.
bool copyBytes(const Descriptor& from, const Descriptor& to) {
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    const ssize_t got = from.readSome(buffer.data(), buffer.size());
    if (got <= 0) {
      return got == 0;
    }
    if (!to.writeAll(buffer.data(), static_cast<std::size_t>(got))) {
      return false;
    }
  }
}

// Stores the status of an open regular file. Returns false and sets errno for any other file.
bool examine(const Descriptor& file, struct stat& status) {
  if (!file.isOpen() || fstat(file.get(), &status) != 0) {
    return false;
  }
  return S_ISREG(status.st_mode) || fail(EOPNOTSUPP);
}

bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The target gets the mode of the source, independently of the umask. Returns false and sets errno
// on failure.
bool copy(const fs::path& from, const fs::path& to, const FileCopyOptions& options) {
  const Descriptor source(
      open(from.c_str(), O_RDONLY | kOpenFlags | (options.followSource ? 0 : O_NOFOLLOW)));
  struct stat wanted;
  if (!examine(source, wanted)) {
    return false;
  }
  const mode_t mode = wanted.st_mode & kPermissionBits;
  const Descriptor target(open(to.c_str(),
                               O_WRONLY | O_CREAT | kOpenFlags | (options.overwrite ? 0 : O_EXCL) |
                                   (options.followTarget ? 0 : O_NOFOLLOW),
                               mode));
  struct stat present;
  if (!examine(target, present)) {
    return false;
  }
  if (isSameFile(wanted, present)) {
    return fail(EEXIST);
  }
  return ftruncate(target.get(), 0) == 0 && copyBytes(source, target) &&
         fchmod(target.get(), mode) == 0;
}

}  // namespace

void copyRegularFile(const fs::path& from, const fs::path& to, const FileCopyOptions& options,
                     boost::system::error_code& error) {
  error.clear();
  if (!copy(from, to, options)) {
    error.assign(errno, boost::system::system_category());
  }
}
