#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/file_status.h"
#include "util/zq_utils/files.h"

namespace fs = boost::filesystem;
using boost::system::error_code;

namespace {

// Both steps use one descriptor, so that exactly the file that was opened changes. Does not wait
// for the other end of a FIFO.
Descriptor openFor(const fs::path& path, const struct stat& wanted) {
  const int links = S_ISDIR(wanted.st_mode) ? 0 : O_NOFOLLOW;
  return Descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | links));
}

bool setOwnership(const Descriptor& file, const fs::path& path, uid_t user, gid_t group) {
  if (!file.isOpen()) {
    QLOG_ERROR("Can't open directory: %s", path.c_str());
    return false;
  }
  const bool changed = fchown(file.get(), user, group) == 0;
  if (!changed) {
    QLOG_ERROR("Failed to change owner of: %s", path.c_str());
  }
  return changed;
}

bool setDirPermissions(const Descriptor& file, const fs::path& path, mode_t bits) {
  if (fchmod(file.get(), bits) != 0) {
    const error_code error(errno, boost::system::system_category());
    QLOG_ERROR("Failed to set permissions for directory: %s, %s", path.c_str(),
               error.message().c_str());
    return false;
  }
  return true;
}

bool setDirOwnershipAndPermissions(const fs::path& path, const struct stat& wanted) {
  const Descriptor file = openFor(path, wanted);
  if (!setOwnership(file, path, wanted.st_uid, wanted.st_gid)) {
    QLOG_ERROR("Failed to change owner: %s, (uid: %d, gid: %d)", path.c_str(),
               static_cast<int>(wanted.st_uid), static_cast<int>(wanted.st_gid));
    return false;
  }
  const mode_t bits = wanted.st_mode & kPermissionBits;
  if (!setDirPermissions(file, path, bits)) {
    QLOG_ERROR("Failed to change permission: %s, (%d)", path.c_str(), static_cast<int>(bits));
    return false;
  }
  return true;
}

}  // namespace

void copyOwnershipAndPermissions(const fs::path& from, const fs::path& to) {
  bool copied = false;
  if (pathExists(from)) {
    struct stat status;
    if (stat(from.c_str(), &status) != 0) {
      return;
    }
    copied = setDirOwnershipAndPermissions(to, status);
  }
  if (!copied) {
    QLOG_ERROR("Failed to copy ownership and permissions from %s to %s", from.c_str(), to.c_str());
  }
}
