#include "quillon/device/isolation.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "quillon/base/files.h"
#include "quillon/device/mounts.h"

namespace quillon::device {
namespace {

constexpr char kProc[] = "/proc";

// The folder has one subfolder per thread, and its link count also counts "." and "..".
bool hasOneThread() {
  struct stat tasks {};
  return stat("/proc/self/task", &tasks) != 0 || tasks.st_nlink == 3;
}

// Returns the number in a kernel setting, or -1 if the kernel does not have the setting.
long settingOf(const char* file) {
  std::ifstream stream(file);
  long value = -1;
  return stream >> value ? value : -1;
}

std::string userNamespaceRemedy() {
  if (settingOf("/proc/sys/kernel/apparmor_restrict_unprivileged_userns") == 1) {
    return "run as root, or enable them: sysctl kernel.apparmor_restrict_unprivileged_userns=0";
  }
  if (settingOf("/proc/sys/kernel/unprivileged_userns_clone") == 0) {
    return "run as root, or enable them: sysctl kernel.unprivileged_userns_clone=1";
  }
  if (settingOf("/proc/sys/user/max_user_namespaces") == 0) {
    return "run as root, or enable them: sysctl user.max_user_namespaces=10000";
  }
  return "run as root, or outside the container or chroot that forbids them "
         "(docker: --cap-add SYS_ADMIN --security-opt seccomp=unconfined "
         "--security-opt apparmor=unconfined)";
}

tl::unexpected<Failure> noUserNamespace(int error) {
  return fail(
      "this machine allows no private mount namespace: user namespaces are not available "
      "to this user (" +
          std::string(std::strerror(error)) + ")",
      userNamespaceRemedy());
}

bool writeFile(const char* file, const std::string& text) {
  const Descriptor stream(open(file, O_WRONLY | O_CLOEXEC));
  return stream && writeAll(stream.get(), text);
}

// Maps one user or group id to itself.
std::string mapOf(unsigned id) { return std::to_string(id) + " " + std::to_string(id) + " 1\n"; }

Expected<void> isolateAsUser(const Descriptor& zoneHolder) {
  if (zoneHolder && setns(zoneHolder.get(), CLONE_NEWUSER) == 0) {
    return unshare(CLONE_NEWNS) == 0 ? Expected<void>() : noUserNamespace(errno);
  }
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    return noUserNamespace(errno);
  }
  if (!writeFile("/proc/self/uid_map", mapOf(user)) || !writeFile("/proc/self/setgroups", "deny") ||
      !writeFile("/proc/self/gid_map", mapOf(group))) {
    return noUserNamespace(errno);
  }
  return {};
}

// In a chroot(2) environment whose root is not a mount point, nothing can be mounted on "/", and
// pivot_root(2) refuses. So make a private copy of the whole tree the root.
//
// The copy is mounted on "/proc", which is a mount point even there. That mount becomes private
// first. The mount that contains the environment may be shared with the machine and cannot be
// reached from inside.
Expected<void> makeRootMountPoint() {
  ASSIGN_OR_RETURN(const Descriptor tree, copyTree("/"));
  mount_attr attributes{};
  attributes.propagation = MS_PRIVATE;
  if (mount_setattr(tree.get(), "", AT_EMPTY_PATH | AT_RECURSIVE, &attributes, sizeof attributes) !=
          0 ||
      mount(nullptr, kProc, nullptr, MS_PRIVATE, nullptr) != 0) {
    return stepFailed(std::string("make '/' a mount point, on '") + kProc + "'", errno);
  }
  const Descriptor target(open(kProc, O_PATH | O_DIRECTORY | O_CLOEXEC));
  RETURN_IF_FAILED(attach(tree, target, kProc));
  if (fchdir(tree.get()) != 0 || chroot(".") != 0) {
    return stepFailed("change to the copy of '/'", errno);
  }
  return {};
}

Expected<void> makePrivate() {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
    return {};
  }
  // AppArmor forbids it this way: it allows the user namespace, but no mount in it.
  if (errno == EACCES || errno == EPERM) {
    return noUserNamespace(errno);
  }
  if (errno == EINVAL) {
    return makeRootMountPoint();
  }
  return stepFailed("make the mount namespace private", errno);
}

}  // namespace

Expected<void> isolateMounts(const Descriptor& zoneHolder) {
  if (!hasOneThread()) {
    return fail("only a process with one thread can enter a device root",
                "enter it before starting threads");
  }
  if (unshare(CLONE_NEWNS) != 0) {
    if (errno == ENOSPC) {
      return fail("this machine's limit of mount namespaces is reached",
                  "raise it: sysctl user.max_mnt_namespaces");
    }
    if (errno != EPERM) {
      return stepFailed("make a private mount namespace", errno);
    }
    RETURN_IF_FAILED(isolateAsUser(zoneHolder));
  }
  return makePrivate();
}

}  // namespace quillon::device
