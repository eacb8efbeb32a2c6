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
    if (!file || fstat(file.get(), &status) != 0 || dup2(file.get(), which) < 0) return false;
    places_.at(static_cast<size_t>(which)) = {status.st_dev, status.st_ino, {which}};
  }
  return true;
}

void StdioPlaceholders::findDuplicates() {
  for (Place& place : places_) place.descriptors.clear();
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end;
       !error && entry != end; entry.increment(error)) {
    note(std::atoi(entry->path().filename().c_str()));
  }
}

void StdioPlaceholders::note(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return;
  for (Place& place : places_) {
    if (place.device == status.st_dev && place.inode == status.st_ino) {
      place.descriptors.push_back(descriptor);
    }
  }
}

void StdioPlaceholders::lead(int which, int descriptor) const {
  for (const int place : places_.at(static_cast<size_t>(which)).descriptors) {
    const bool isStandard = place <= STDERR_FILENO;
    if (descriptor >= 0) {
      isStandard ? dup2(descriptor, place) : dup3(descriptor, place, O_CLOEXEC);
    } else if (isStandard) {
      close(place);
    }
  }
}

}  // namespace quillon::launchpad
