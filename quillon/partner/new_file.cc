#include "quillon/partner/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "quillon/base/descriptor.h"
#include "quillon/base/files.h"

namespace quillon::partner {
namespace {

constexpr mode_t kReadableByAll = 0644;

tl::unexpected<Failure> cannotWrite(const std::filesystem::path& path, int error) {
  return fail("cannot write '" + path.string() + "': " + std::strerror(error),
              error == EISDIR ? "move the folder of that name away"
                              : "choose a folder that you may write to");
}

}  // namespace

NewFile::NewFile(std::filesystem::path path)
    : path_(std::move(path)),
      temporary_(path_.parent_path() /
                 ("." + path_.filename().string() + "." + std::to_string(getpid()))) {}

NewFile::~NewFile() {
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
  }
}

Expected<void> NewFile::write(const std::string& content) {
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  Descriptor file(open(temporary_.c_str(), flags, kReadableByAll));
  if (!file || !writeAll(file.get(), content) || fsync(file.get()) != 0 ||
      close(file.release()) != 0) {
    return cannotWrite(path_, errno);
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
