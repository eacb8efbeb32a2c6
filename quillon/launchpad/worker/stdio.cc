#include "quillon/launchpad/worker/stdio.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

bool StdioPlaceholders::open() {
  for (int which = STDIN_FILENO; which <= STDERR_FILENO; ++which) {
    const Descriptor file(memfd_create("quillon-standard-descriptor", MFD_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0 || dup2(file.get(), which) < 0) {
      return false;
    }
    placeholders_.at(static_cast<size_t>(which)) = {status.st_dev, status.st_ino, {which}};
  }
  return true;
}

void StdioPlaceholders::findDuplicates() {
  for (Placeholder& placeholder : placeholders_) {
    placeholder.descriptors.clear();
  }
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
       !error && entry != end; entry.increment(error)) {
    recordIfDuplicate(std::atoi(entry->path().filename().c_str()));
  }
}

void StdioPlaceholders::recordIfDuplicate(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return;
  }
  for (Placeholder& placeholder : placeholders_) {
    if (placeholder.device == status.st_dev && placeholder.inode == status.st_ino) {
      placeholder.descriptors.push_back(descriptor);
    }
  }
}

void StdioPlaceholders::redirect(int which, int descriptor) const {
  for (const int duplicate : placeholders_.at(static_cast<size_t>(which)).descriptors) {
    const bool isStandard = duplicate <= STDERR_FILENO;
    if (descriptor >= 0) {
      isStandard ? dup2(descriptor, duplicate) : dup3(descriptor, duplicate, O_CLOEXEC);
    } else if (isStandard) {
      close(duplicate);
    }
  }
}

}  // namespace quillon::launchpad
