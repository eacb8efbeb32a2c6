#include "util/zq_utils/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>

#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/file_status.h"

namespace fs = boost::filesystem;
using boost::system::error_code;

namespace {

bool writeAll(const Descriptor& file, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t written = file.writeSome(bytes, size);
    if (written < 0) {
      return false;
    }
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// Returns false and sets errno on failure.
bool copyBytes(const Descriptor& from, const Descriptor& to) {
  std::array<char, 64 * 1024> buffer;
  for (;;) {
    const ssize_t got = from.readSome(buffer.data(), buffer.size());
    if (got <= 0) {
      return got == 0;
    }
    if (!writeAll(to, buffer.data(), static_cast<std::size_t>(got))) {
      return false;
    }
  }
}

// The failed first attempt has already created the target. Like a copy by the library, the target
// gets the mode of the source, independently of the umask. Returns false and sets errno on failure.
bool copyByReading(const fs::path& from, const fs::path& to) {
  const Descriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!source.isOpen() || fstat(source.get(), &status) != 0) {
    return false;
  }
  const Descriptor target(
      open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, status.st_mode & kPermissionBits));
  return target.isOpen() && copyBytes(source, target) &&
         fchmod(target.get(), status.st_mode & kPermissionBits) == 0;
}

}  // namespace

void copyFileAnywhere(const fs::path& from, const fs::path& to, fs::copy_options options,
                      error_code& error) {
  fs::copy_file(from, to, options, error);
  if (error == boost::system::errc::cross_device_link) {
    error.clear();
    if (!copyByReading(from, to)) {
      error.assign(errno, boost::system::system_category());
    }
  }
}
