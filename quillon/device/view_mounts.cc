// How the parts of the view are mounted.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

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
  return ::fstat(one.get(), &a) == 0 && ::fstat(other.get(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

bool isFolder(const Descriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

// Mounted over "/", the new tree hides nothing: the process's own root stays what is beneath.
Expected<void> View::makeTop() {
  auto mount = newTmpfs("0755");
  if (!mount) {
    return tl::unexpected(mount.error());
  }
  const Descriptor root(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  RETURN_IF_FAILED(attach(*mount, root, "/"));
  top_ = std::move(*mount);
  return {};
}

// A folder of the tree's own, as open to others as the machine's.
Expected<void> View::makeFolderLike(const std::string& path) {
  struct stat status {};
  RETURN_IF_FAILED(makeMountPoint(path, true));
  if (::stat(onMachine(path).c_str(), &status) != 0 ||
      ::fchmodat(top_.get(), path.c_str(), status.st_mode & 07777U, 0) != 0) {
    return stepFailed("make a folder like '" + onMachine(path) + "'", errno);
  }
  return {};
}

Expected<void> View::graft(const std::string& source, const std::string& path) {
  const auto tree = copyTree(source);
  if (!tree) {
    return tl::unexpected(tree.error());
  }
  RETURN_IF_FAILED(makeReadOnly(*tree, Reach::kWholeTree, source));
  const auto target = makeMountPoint(path, isFolder(*tree));
  return target ? attach(*tree, *target, onMachine(path)) : tl::unexpected(target.error());
}

Expected<void> View::placeWritable(const std::string& path) {
  const auto tree = copyTree(inDevice(path));
  if (!tree) {
    return tl::unexpected(tree.error());
  }
  const auto target = makeMountPoint(path, true);
  return target ? attach(*tree, *target, onMachine(path)) : tl::unexpected(target.error());
}

// "/dev" itself can hold files, the file systems of the kernel beneath it cannot.
Expected<void> View::placeKernelTree(const std::string& path) {
  const auto tree = copyTree(onMachine(path));
  const auto target = makeMountPoint(path, true);
  if (!tree || !target) {
    return tl::unexpected(tree ? target.error() : tree.error());
  }
  if (path == "dev") {
    RETURN_IF_FAILED(makeReadOnly(*tree, Reach::kOne, "/dev"));
  }
  RETURN_IF_FAILED(attach(*tree, *target, onMachine(path)));
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
  const auto mount = newTmpfs("1777");
  return mount ? attach(*mount, target, "/dev/shm") : tl::unexpected(mount.error());
}

// Makes what is missing of `path` in the tree, and opens it. No symbolic link is followed: a device
// root's content must not lead the way out of it.
Expected<Descriptor> View::makeMountPoint(const std::string& path, bool folder) {
  Descriptor place(::fcntl(top_.get(), F_DUPFD_CLOEXEC, 0));
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, end - start);
    Descriptor next = openFolder(place, name);
    if (end == path.size() && !folder) {
      Descriptor made(::openat(place.get(), name.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, 0644));
      next = Descriptor(::openat(place.get(), name.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW));
    } else if (!next && ::mkdirat(place.get(), name.c_str(), 0755) == 0) {
      ::fchmodat(place.get(), name.c_str(), 0755, 0);  // whatever the umask
      next = openFolder(place, name);
    }
    if (!next) {
      return stepFailed("make a place for '" + onMachine(path) + "' in the device root's view",
                        errno);
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
  const Descriptor machine(::open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!machine || sameFile(machine, openInside(top_, path))) {
    return {};
  }
  return graft(path, path.substr(1));
}

Expected<void> View::openForWriting(const std::string& path) {
  const auto tree = copyTree(path);
  if (!tree) {
    return tl::unexpected(tree.error());
  }
  const auto target = makeMountPoint(path.substr(1), isFolder(*tree));
  return target ? attach(*tree, *target, path) : tl::unexpected(target.error());
}

Expected<void> View::writeMarker() {
  const std::string marker(kInsideMarker);
  const Descriptor file(::openat(top_.get(), marker.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0444));
  if (!file ||
      ::write(file.get(), device_.data(), device_.size()) != static_cast<ssize_t>(device_.size())) {
    return stepFailed("write '" + onMachine(marker) + "'", errno);
  }
  return {};
}

Expected<void> View::moveIn() {
  RETURN_IF_FAILED(makeReadOnly(top_, Reach::kOne, "/"));
  // The old root comes to lie on the new one, from where it is taken off with all its mounts.
  if (::fchdir(top_.get()) != 0 || ::syscall(SYS_pivot_root, ".", ".") != 0 ||
      ::umount2(".", MNT_DETACH) != 0 || ::chdir("/") != 0) {
    return stepFailed("move into the device root's view (pivot_root)", errno);
  }
  return {};
}

}  // namespace quillon::device
