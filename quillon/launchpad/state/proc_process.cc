#include "quillon/launchpad/state/proc_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "quillon/base/files.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxLinkLength = 128;

Descriptor openFolder(pid_t pid) {
  const std::string path = pid == 0 ? "/proc/self" : "/proc/" + std::to_string(pid);
  return Descriptor(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

ProcProcess::ProcProcess(pid_t pid)
    : pid_(pid), folder_(openFolder(pid)), status_(contentOf("status")) {}

// The process can choose its name, which is in the first line, but cannot add a line with it: the
// kernel escapes line breaks.
std::optional<std::string_view> ProcProcess::status(std::string_view name) const {
  const std::string_view all = status_;
  for (size_t at = 0; at < all.size();) {
    const size_t end = std::min(all.find('\n', at), all.size());
    std::string_view line = all.substr(at, end - at);
    at = end + 1;
    if (!line.starts_with(name)) {
      continue;
    }
    line.remove_prefix(name.size());
    if (line.starts_with(":\t")) {
      return line.substr(2);
    }
  }
  return std::nullopt;
}

std::string ProcProcess::contentOf(const char* file) const {
  return folder_ ? readSmallFileAt(folder_.get(), file) : std::string();
}

std::string ProcProcess::targetOf(const char* link) const {
  std::array<char, kMaxLinkLength> target;
  const ssize_t length = readlinkat(folder_.get(), link, target.data(), target.size());
  return {target.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

struct stat ProcProcess::fileAt(const char* link) const {
  struct stat status {};
  if (fstatat(folder_.get(), link, &status, 0) != 0) {
    status = {};
  }
  return status;
}

}  // namespace quillon::launchpad
