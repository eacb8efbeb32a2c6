#include "join.h"

#include <limits.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace quillon::zone {
namespace {

constexpr int kZoneNamespaces = CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWIPC;

// One folder per thread, beside "." and "..".
bool hasOneThread() {
  struct stat tasks {};
  return ::stat("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;
}

// The kernel puts a process that joins a mount namespace at that namespace's root, where it stays
// when the zone has no such path.
void returnTo(const char* workingDirectory) {
  if (workingDirectory[0] == '/') {
    [[maybe_unused]] const int result = ::chdir(workingDirectory);
  }
}

}  // namespace

int joinNamespaces(int pidfd) {
  // The kernel does not refuse several threads when it joins more than a mount namespace: the
  // others would get the zone's root and keep their own namespaces.
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
  returnTo(workingDirectory);
  return 0;
}

}  // namespace quillon::zone
