#include "quillon/launchpad/state/proc_self.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"

namespace quillon::launchpad {
namespace {

constexpr size_t kMaxLinkLength = 64;

constexpr int kMaxStandardSignal = 31;

// Bit 0 is signal 1.
uint64_t bitOf(int signal) { return uint64_t{1} << (signal - 1); }

bool isInherited(int fd) {
  if (fd <= STDERR_FILENO) {
    return false;
  }
  const int flags = fcntl(fd, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) == 0;
}

}  // namespace

ProcSelf::ProcSelf()
    : folder_(open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC)), status_(contentOf("status")) {}

// The process can choose its name, which is in the first line, but cannot add a line with it: the
// kernel escapes line breaks.
std::optional<std::string_view> ProcSelf::status(std::string_view name) const {
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

uint64_t ProcSelf::signals(std::string_view name) const {
  const std::string_view digits = status(name).value_or("");
  uint64_t bits = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), bits, 16);
  for (int signal = kMaxStandardSignal + 1; signal < SIGRTMIN; ++signal) {
    bits &= ~bitOf(signal);
  }
  return bits;
}

sigset_t ProcSelf::ignoredSignals() const {
  const uint64_t bits = signals("SigIgn");
  sigset_t ignored;
  sigemptyset(&ignored);
  for (int signal = 1; signal < NSIG; ++signal) {
    if ((bits & bitOf(signal)) != 0) {
      sigaddset(&ignored, signal);
    }
  }
  return ignored;
}

std::string ProcSelf::contentOf(const char* file) const {
  return folder_ ? readSmallFileAt(folder_.get(), file) : std::string();
}

std::string ProcSelf::targetOf(const char* link) const {
  std::array<char, kMaxLinkLength> target;
  const ssize_t length = readlinkat(folder_.get(), link, target.data(), target.size());
  return {target.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

std::vector<int> ProcSelf::inheritedDescriptors() const {
  const Descriptor folder(openat(folder_.get(), "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<int> found;
  for (const std::string& name : directoryEntries(folder.get())) {
    int fd = -1;
    std::from_chars(name.data(), name.data() + name.size(), fd);
    if (isInherited(fd)) {
      found.push_back(fd);
    }
  }
  return found;
}

}  // namespace quillon::launchpad
