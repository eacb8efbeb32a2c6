#include "tools/device/view.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/device/layout.h"

namespace quillon::device {
namespace {

enum class Kind { kNone, kFolder, kLink, kOther };

Kind kindOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    return Kind::kNone;
  }
  if (S_ISDIR(status.st_mode)) {
    return Kind::kFolder;
  }
  return S_ISLNK(status.st_mode) ? Kind::kLink : Kind::kOther;
}

bool isBeneath(std::string_view path, std::string_view folder) {
  return folder.empty() || (path.size() > folder.size() &&
                            path.substr(0, folder.size()) == folder && path[folder.size()] == '/');
}

std::string onMachine(const std::string& path) { return "/" + path; }

std::string join(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

// Adds the names in `folder`, if there is one.
void addNames(const std::string& folder, std::set<std::string>& names) {
  DIR* stream = ::opendir(folder.c_str());
  if (stream == nullptr) {
    return;
  }
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") {
      names.emplace(name);
    }
  }
  ::closedir(stream);
}

// The kernel's own trees: never overlaid, and left as they are.
bool isKernelTree(const std::string& path) {
  return path == "dev" || path == "proc" || path == "sys";
}

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

bool isDeviceDirectory(const std::string& path) {
  return std::find(kDeviceDirectories.begin(), kDeviceDirectories.end(), path) !=
         kDeviceDirectories.end();
}

bool holdsDeviceDirectory(const std::string& path) {
  return std::any_of(
      kDeviceDirectories.begin(), kDeviceDirectories.end(),
      [&](std::string_view folder) { return folder == path || isBeneath(folder, path); });
}

View::View(std::string device) : device_(std::move(device)), machineMounts_(readMountPoints()) {}

Expected<void> View::build() {
  if (auto made = makeTop(); !made) {
    return made;
  }
  if (auto placed = split(""); !placed) {
    return placed;
  }
  return writeMarker();
}

// Mounted over "/", the new tree hides nothing: the process's own root stays what is beneath.
Expected<void> View::makeTop() {
  auto mount = newTmpfs("0755");
  if (!mount) {
    return tl::unexpected(mount.error());
  }
  const Descriptor root(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (auto attached = attach(*mount, root, "/"); !attached) {
    return attached;
  }
  top_ = std::move(*mount);
  return {};
}

// One by one: what an overlay cannot hold.
Expected<void> View::split(const std::string& path) {
  std::set<std::string> names;
  addNames(onMachine(path), names);
  addNames(inDevice(path), names);
  if (path.empty()) {
    names.erase(std::string(kRecordDirectory));
  }
  for (const std::string& name : names) {
    if (auto placed = place(join(path, name)); !placed) {
      return placed;
    }
  }
  return {};
}

Expected<void> View::place(const std::string& path) {
  const Kind device = kindOf(inDevice(path));
  const Kind machine = kindOf(onMachine(path));
  if (isDeviceDirectory(path)) {
    return device == Kind::kFolder ? placeWritable(path) : Expected<void>();
  }
  if (isKernelTree(path)) {
    return placeKernelTree(path);
  }
  if (device == Kind::kNone) {
    return placeMachine(path);
  }
  if (machine == Kind::kNone) {
    return placeDevice(path);
  }
  if (path.find('/') == std::string::npos && machine == Kind::kLink && device == Kind::kFolder) {
    return fail("'" + inDevice(path) + "' is a folder, but '" + onMachine(path) +
                    "' is a symbolic link on this machine",
                "move its files to where the link leads");
  }
  return placeBoth(path, machine == Kind::kFolder, device == Kind::kFolder);
}

// The device root's file lies over the machine's; only the machine's top folders and links are
// never replaced by a file, since everything on it hangs on them.
Expected<void> View::placeBoth(const std::string& path, bool machineIsFolder, bool deviceIsFolder) {
  if (!machineIsFolder || !deviceIsFolder) {
    const bool isTop = path.find('/') == std::string::npos;
    return isTop && (machineIsFolder || kindOf(onMachine(path)) == Kind::kLink) ? placeMachine(path)
                                                                                : placeDevice(path);
  }
  if (mustSplit(path)) {
    if (auto made = makeMountPoint(path, true); !made) {
      return tl::unexpected(made.error());
    }
    return split(path);
  }
  return overlay(path);
}

// An overlay does not show what is mounted beneath its layers, and a layer must not hold the other.
bool View::mustSplit(const std::string& path) const {
  const std::string folder = onMachine(path);
  return device_ == folder || isBeneath(device_, folder) ||
         std::any_of(machineMounts_.begin(), machineMounts_.end(),
                     [&](const MountPoint& mount) { return isBeneath(mount.path, folder); });
}

Expected<void> View::overlay(const std::string& path) {
  const Descriptor upper(::open(inDevice(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor lower(::open(onMachine(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto mount = newOverlay(upper, lower);
  const auto target = makeMountPoint(path, true);
  if (!target) {
    return tl::unexpected(target.error());
  }
  if (!mount && mount.error() == ELOOP) {
    return split(path);  // the layers meet by way of a second mount of the same folder
  }
  if (!mount) {
    return stepFailed("lay '" + inDevice(path) + "' over '" + onMachine(path) + "' (overlay)",
                      mount.error());
  }
  if (auto attached = attach(*mount, *target, onMachine(path)); !attached) {
    return attached;
  }
  return placeDeviceDirectoriesBeneath(path);
}

Expected<void> View::placeDeviceDirectoriesBeneath(const std::string& path) {
  for (const std::string_view folder : kDeviceDirectories) {
    if (!isBeneath(folder, path)) {
      continue;
    }
    if (auto placed = placeWritable(std::string(folder)); !placed) {
      return placed;
    }
  }
  return {};
}

Expected<void> View::placeMachine(const std::string& path) {
  return placeReadOnly(onMachine(path), path);
}

Expected<void> View::placeDevice(const std::string& path) {
  if (auto placed = placeReadOnly(inDevice(path), path); !placed) {
    return placed;
  }
  return placeDeviceDirectoriesBeneath(path);
}

Expected<void> View::placeReadOnly(const std::string& source, const std::string& path) {
  if (kindOf(source) != Kind::kLink) {
    return graft(source, path);
  }
  std::error_code error;
  const std::filesystem::path target = std::filesystem::read_symlink(source, error);
  if (error || ::symlinkat(target.c_str(), top_.get(), path.c_str()) != 0) {
    return stepFailed("copy the symbolic link '" + source + "'", error ? error.value() : errno);
  }
  return {};
}

Expected<void> View::graft(const std::string& source, const std::string& path) {
  const auto tree = copyTree(source);
  if (!tree) {
    return tl::unexpected(tree.error());
  }
  if (auto made = makeReadOnly(*tree, Reach::kWholeTree, source); !made) {
    return made;
  }
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
    if (auto made = makeReadOnly(*tree, Reach::kOne, "/dev"); !made) {
      return made;
    }
  }
  if (auto attached = attach(*tree, *target, onMachine(path)); !attached) {
    return attached;
  }
  for (const MountPoint& mount : machineMounts_) {
    if (!isBeneath(mount.path, onMachine(path)) || keepsNoFiles(mount.type)) {
      continue;
    }
    const Descriptor inside = openInside(top_, mount.path);
    if (inside.valid()) {
      if (auto made = makeReadOnly(inside, Reach::kOne, mount.path); !made) {
        return made;
      }
    }
  }
  return path == "dev" ? placeSharedMemory() : Expected<void>();
}

Expected<void> View::placeSharedMemory() {
  const Descriptor target = openFolder(top_, "dev/shm");
  if (!target.valid()) {
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
      Descriptor made(::openat(place.get(), name.c_str(), O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
      next = Descriptor(::openat(place.get(), name.c_str(), O_PATH | O_CLOEXEC | O_NOFOLLOW));
    } else if (!next.valid() && ::mkdirat(place.get(), name.c_str(), 0755) == 0) {
      next = openFolder(place, name);
    }
    if (!next.valid()) {
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
  if (!machine.valid() || sameFile(machine, openInside(top_, path))) {
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
  if (!file.valid() ||
      ::write(file.get(), device_.data(), device_.size()) != static_cast<ssize_t>(device_.size())) {
    return stepFailed("write '" + onMachine(marker) + "'", errno);
  }
  return {};
}

Expected<void> View::moveIn() {
  if (auto made = makeReadOnly(top_, Reach::kOne, "/"); !made) {
    return made;
  }
  // The old root comes to lie on the new one, from where it is taken off with all its mounts.
  if (::fchdir(top_.get()) != 0 || ::syscall(SYS_pivot_root, ".", ".") != 0 ||
      ::umount2(".", MNT_DETACH) != 0 || ::chdir("/") != 0) {
    return stepFailed("move into the device root's view (pivot_root)", errno);
  }
  return {};
}

}  // namespace quillon::device
