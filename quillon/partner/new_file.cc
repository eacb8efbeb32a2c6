#include "quillon/partner/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace quillon::partner {
namespace {

constexpr mode_t kReadableByAll = 0644;

tl::unexpected<Failure> cannotWrite(const std::filesystem::path& path, int error) {
  return fail("cannot write '" + path.string() + "': " + std::strerror(error),
              error == EISDIR ? "move the folder that has its name away"
                              : "choose a folder that you may write to");
}

bool writeAll(int descriptor, const std::string& content) {
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t count = ::write(descriptor, content.data() + done, content.size() - done);
    if (count < 0 && errno != EINTR) {
      return false;
    }
    done += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace

NewFile::NewFile(std::filesystem::path path)
    : path_(std::move(path)),
      temporary_(path_.parent_path() /
                 ("." + path_.filename().string() + "." + std::to_string(::getpid()))) {}

NewFile::~NewFile() {
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
  }
}

Expected<void> NewFile::write(const std::string& content) {
  const int descriptor = ::open(
      temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, kReadableByAll);
  if (descriptor < 0) {
    return cannotWrite(path_, errno);
  }
  const bool written = writeAll(descriptor, content) && ::fsync(descriptor) == 0;
  const int error = errno;
  if (::close(descriptor) != 0 || !written) {
    return cannotWrite(path_, written ? errno : error);
  }
  return {};
}

Expected<void> NewFile::publish() {
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    return cannotWrite(path_, errno);
  }
  temporary_.clear();
  return {};
}

}  // namespace quillon::partner
