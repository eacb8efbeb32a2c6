#include "quillon/launchpad/state/proc_self.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <string>

#include "quillon/base/directory_entries.h"

namespace quillon::launchpad {
namespace {

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

std::vector<int> ProcSelf::inheritedDescriptors() const {
  const Descriptor listed(openat(folder(), "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::vector<int> found;
  for (const std::string& name : directoryEntries(listed.get())) {
    int fd = -1;
    std::from_chars(name.data(), name.data() + name.size(), fd);
    if (isInherited(fd)) {
      found.push_back(fd);
    }
  }
  return found;
}

}  // namespace quillon::launchpad
