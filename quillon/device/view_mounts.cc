// Mounts the parts of the view.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

#include "quillon/base/files.h"
#include "quillon/device/layout.h"
#include "quillon/device/tree_path.h"
#include "quillon/device/view.h"

namespace quillon::device {
namespace {

bool keepsNoFiles(const std::string& type) {
  static const std::set<std::string> kTypes = {
      "binder",  "binfmt_misc", "bpf",      "cgroup",     "cgroup2",    "configfs",
      "debugfs", "devpts",      "devtmpfs", "fusectl",    "hugetlbfs",  "mqueue",
      "nsfs",    "proc",        "pstore",   "rpc_pipefs", "securityfs", "selinuxfs",
      "smackfs", "sysfs",       "tracefs",  "efivarfs"};
  return kTypes.count(type) != 0;
}

bool sameFile(const Descriptor& one, const Descriptor& other) {
  struct stat a {};
  struct stat b {};
  return fstat(one.get(), &a) == 0 && fstat(other.get(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

bool isFolder(const Descriptor& file) {
  struct stat status {};
  return fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Repeats a mode that mkdirat(2) has applied the umask to. Not by name: the owner of the device
// root may have replaced the folder by a link.
void allowEveryoneToList(const Descriptor& folder) {
  chmod(("/proc/self/fd/" + std::to_string(folder.get())).c_str(), 0755);
}

}  // namespace

// A mount over "/" is not visible yet: the root directory of the process stays the one below it.
Expected<void> View::makeTop() {
  ASSIGN_OR_RETURN(top_, newTmpfs("0755"));
  const Descriptor root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  return attach(top_, root, "/");
}

// Creates a folder in the tree with the permissions of the machine's.
Expected<void> View::makeFolderLike(const std::string& path) {
  struct stat status {};
  RETURN_IF_FAILED(makeMountPoint(path, true));
  if (stat(onMachine(path).c_str(), &status) != 0 ||
      fchmodat(top_.get(), path.c_str(), status.st_mode & 07777U, 0) != 0) {
    return stepFailed("create a folder like '" + onMachine(path) + "'", errno);
  }
  return {};
}

Expected<void> View::graft(const std::string& source, const std::string& path) {
  ASSIGN_OR_RETURN(const Descriptor tree, copyTree(source));
  RETURN_IF_FAILED(makeReadOnly(tree, Reach::kWholeTree, source));
  ASSIGN_OR_RETURN(const Descriptor target, makeMountPoint(path, isFolder(tree)));
  return attach(tree, target, onMachine(path));
}

Expected<void> View::placeWritable(const std::string& path) {
  ASSIGN_OR_RETURN(const Descriptor tree, copyTree(inDevice(path)));
  ASSIGN_OR_RETURN(const Descriptor target, makeMountPoint(path, true));
  return attach(tree, target, onMachine(path));
}

// Makes "/dev" and the mounts that can store files read-only. File systems that only show kernel
// state stay writable.
Expected<void> View::placeKernelTree(const std::string& path) {
  ASSIGN_OR_RETURN(const Descriptor tree, copyTree(onMachine(path)));
  ASSIGN_OR_RETURN(const Descriptor target, makeMountPoint(path, true));
  if (path == "dev") {
    RETURN_IF_FAILED(makeReadOnly(tree, Reach::kOne, "/dev"));
  }
  RETURN_IF_FAILED(attach(tree, target, onMachine(path)));
  for (const MountPoint& mount : machineMounts_) {
    if (!isBeneath(mount.path, onMachine(path)) || keepsNoFiles(mount.type)) {
      continue;
    }
    const Descriptor inside = openInside(top_, mount.path);
    if (inside) {
      RETURN_IF_FAILED(makeReadOnly(inside, Reach::kOne, mount.path));
    }
  }
  return path == "dev" ? placeSharedMemory() : Expected<void>();
}

Expected<void> View::placeSharedMemory() {
  const Descriptor target = openFolder(top_, "dev/shm");
  if (!target) {
    return {};
  }
  ASSIGN_OR_RETURN(const Descriptor mount, newTmpfs("1777"));
  return attach(mount, target, "/dev/shm");
}

// Creates the missing components of `path` in the tree, and opens it. Follows no symbolic link, so
// that links in a device root cannot lead out of it.
Expected<Descriptor> View::makeMountPoint(const std::string& path, bool folder) {
  Descriptor place(fcntl(top_.get(), F_DUPFD_CLOEXEC, 0));
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, end - start);
    Descriptor next = openFolder(place, name);
    if (end == path.size() && !folder) {
      Descriptor made(openat(place.get(), name.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, 0644));
      next = Descriptor(openat(place.get(), name.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW));
    } else if (!next && mkdirat(place.get(), name.c_str(), 0755) == 0) {
      next = openFolder(place, name);
      allowEveryoneToList(next);
    }
    if (!next) {
      return stepFailed(
          "create a mount point for '" + onMachine(path) + "' in the device root's view", errno);
    }
    place = std::move(next);
    start = end + 1;
  }
  return place;
}

Expected<void> View::showFramework(const std::string& folder) {
  return graft(folder, std::string(kFrameworkMountPoint));
}

Expected<void> View::show(const std::string& path) {
  const Descriptor machine(open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!machine || sameFile(machine, openInside(top_, path))) {
    return {};
  }
  return graft(path, path.substr(1));
}

Expected<void> View::openForWriting(const std::string& path) {
  ASSIGN_OR_RETURN(const Descriptor tree, copyTree(path));
  ASSIGN_OR_RETURN(const Descriptor target, makeMountPoint(path.substr(1), isFolder(tree)));
  return attach(tree, target, path);
}

Expected<void> View::writeMarker() {
  const std::string marker(kInsideMarker);
  const Descriptor file(openat(top_.get(), marker.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0444));
  if (!file || !writeAll(file.get(), device_)) {
    return stepFailed("write '" + onMachine(marker) + "'", errno);
  }
  return {};
}

Expected<void> View::moveIn() {
  RETURN_IF_FAILED(makeReadOnly(top_, Reach::kOne, "/"));
  // pivot_root(".", ".") stacks the old root on the new one; see pivot_root(2).
  if (fchdir(top_.get()) != 0 || syscall(SYS_pivot_root, ".", ".") != 0 ||
      umount2(".", MNT_DETACH) != 0 || chdir("/") != 0) {
    return stepFailed("move into the device root's view (pivot_root)", errno);
  }
  return {};
}

}  // namespace quillon::device
