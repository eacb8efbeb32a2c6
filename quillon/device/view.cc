// Decides which parts of the view come from the machine and which from the device root.
// view_mounts.cc mounts them.
#include "quillon/device/view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "quillon/base/directory_entries.h"
#include "quillon/device/layout.h"
#include "quillon/device/tree_path.h"

namespace quillon::device {
namespace {

enum class Kind { kNone, kFolder, kLink, kOther };

Kind kindOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    return Kind::kNone;
  }
  if (S_ISDIR(status.st_mode)) {
    return Kind::kFolder;
  }
  return S_ISLNK(status.st_mode) ? Kind::kLink : Kind::kOther;
}

std::vector<std::string> entriesOf(const std::string& folder) {
  const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directoryEntries(opened.get());
}

// File systems of the kernel, which are shown unchanged and never overlaid.
bool isKernelTree(const std::string& path) {
  return path == "dev" || path == "proc" || path == "sys";
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
  RETURN_IF_FAILED(makeTop());
  RETURN_IF_FAILED(split(""));
  return writeMarker();
}

// Places the entries of a folder one by one, for folders that an overlay cannot show.
Expected<void> View::split(const std::string& path) {
  std::set<std::string> names;
  for (const std::string& folder : {onMachine(path), inDevice(path)}) {
    for (std::string& name : entriesOf(folder)) {
      names.insert(std::move(name));
    }
  }
  if (path.empty()) {
    names.erase(std::string(kRecordDirectory));
  }
  for (const std::string& name : names) {
    RETURN_IF_FAILED(place(join(path, name)));
  }
  return {};
}

Expected<void> View::splitFolder(const std::string& path) {
  return makeFolderLike(path).and_then([&] { return split(path); });
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
                "move its files to the target of the link");
  }
  return placeBoth(path, machine == Kind::kFolder, device == Kind::kFolder);
}

// Shows the file of the device root instead of the machine's. But folders and links at the top of
// the machine's tree are never replaced by a file, since all programs of the machine depend on
// them.
Expected<void> View::placeBoth(const std::string& path, bool machineIsFolder, bool deviceIsFolder) {
  if (!machineIsFolder || !deviceIsFolder) {
    const bool isTop = path.find('/') == std::string::npos;
    return isTop && (machineIsFolder || kindOf(onMachine(path)) == Kind::kLink) ? placeMachine(path)
                                                                                : placeDevice(path);
  }
  if (mustSplit(path)) {
    return splitFolder(path);
  }
  return overlay(path);
}

// An overlay does not show the mounts below its layers.
bool View::mustSplit(const std::string& path) const {
  return std::any_of(machineMounts_.begin(), machineMounts_.end(), [&](const MountPoint& mount) {
    return isBeneath(mount.path, onMachine(path));
  });
}

Expected<void> View::overlay(const std::string& path) {
  const Descriptor upper(open(inDevice(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const Descriptor lower(open(onMachine(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto mount = newOverlay(upper, lower);
  if (!mount && mount.error() == ELOOP) {
    return splitFolder(path);  // one layer contains the other: the device root is in this folder
  }
  if (!mount) {
    return stepFailed("show '" + inDevice(path) + "' over '" + onMachine(path) + "' (overlay)",
                      mount.error());
  }
  ASSIGN_OR_RETURN(const Descriptor target, makeMountPoint(path, true));
  RETURN_IF_FAILED(attach(*mount, target, onMachine(path)));
  return placeDeviceDirectoriesBeneath(path);
}

Expected<void> View::placeDeviceDirectoriesBeneath(const std::string& path) {
  for (const std::string_view folder : kDeviceDirectories) {
    if (isBeneath(folder, path)) {
      RETURN_IF_FAILED(placeWritable(std::string(folder)));
    }
  }
  return {};
}

Expected<void> View::placeMachine(const std::string& path) {
  return placeReadOnly(onMachine(path), path);
}

Expected<void> View::placeDevice(const std::string& path) {
  RETURN_IF_FAILED(placeReadOnly(inDevice(path), path));
  return placeDeviceDirectoriesBeneath(path);
}

Expected<void> View::placeReadOnly(const std::string& source, const std::string& path) {
  if (kindOf(source) != Kind::kLink) {
    return graft(source, path);
  }
  std::error_code error;
  const std::filesystem::path target = std::filesystem::read_symlink(source, error);
  if (error || symlinkat(target.c_str(), top_.get(), path.c_str()) != 0) {
    return stepFailed("copy the symbolic link '" + source + "'", error ? error.value() : errno);
  }
  return {};
}

}  // namespace quillon::device
