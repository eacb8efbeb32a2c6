#include "join.h"

#include <limits.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quillon::zone {
namespace {

constexpr int kZoneNamespaces = CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC;

// The link count of the folder: one for each thread, besides "." and "..".
bool hasOneThread() {
  struct stat tasks {};
  return ::stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;
}

// setns(2) moves the working directory to the root of the new mount namespace. The process stays
// there if the zone does not have its previous working directory.
void restore(const char* workingDirectory) {
  if (workingDirectory[0] == '/') {
    [[maybe_unused]] const int result = ::chdir(workingDirectory);
  }
}

}  // namespace

int joinNamespaces(int pidfd) {
  // setns(2) with more than a mount namespace does not fail if there are several threads. The other
  // threads would get the zone's root but keep their own namespaces.
  if (!hasOneThread()) {
    return EBUSY;
  }
  char workingDirectory[PATH_MAX];
  if (::getcwd(workingDirectory, sizeof workingDirectory) == nullptr) {
    workingDirectory[0] = '\0';
  }
  if (::setns(pidfd, kZoneNamespaces) != 0) {
    return errno;
  }
  restore(workingDirectory);
  return 0;
}

}  // namespace quillon::zone
