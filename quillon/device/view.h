// The file tree of a process inside a device root: the machine's files with the device root's over
// them. It consists of mounts on a new tmpfs, so that building it writes to neither.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/device/mounts.h"

namespace quillon::device {

class View {
 public:
  // `device` is the device root's canonical path. Call in a private mount namespace.
  explicit View(std::string device);

  // Builds the whole tree on top of the root of the mount namespace. The process does not see it
  // before moveIn().
  [[nodiscard]] Expected<void> build();

  // Shows the machine's folder `folder` as the device's framework.
  [[nodiscard]] Expected<void> showFramework(const std::string& folder);

  // Shows a canonical path of the machine, if the tree hides it.
  [[nodiscard]] Expected<void> show(const std::string& path);
  // Makes a canonical path of the machine writable.
  [[nodiscard]] Expected<void> openForWriting(const std::string& path);

  // Makes the tree the process's root and unmounts the machine's. Call it last.
  [[nodiscard]] Expected<void> moveIn();

 private:
  // Paths in the tree have no leading "/"; the top is "".
  Expected<void> makeTop();
  Expected<void> makeFolderLike(const std::string& path);
  Expected<void> split(const std::string& path);
  Expected<void> splitFolder(const std::string& path);
  Expected<void> place(const std::string& path);
  Expected<void> placeBoth(const std::string& path, bool machineIsFolder, bool deviceIsFolder);
  Expected<void> placeMachine(const std::string& path);
  Expected<void> placeDevice(const std::string& path);
  Expected<void> placeReadOnly(const std::string& source, const std::string& path);
  Expected<void> placeWritable(const std::string& path);
  Expected<void> placeDeviceDirectoriesBeneath(const std::string& path);
  Expected<void> overlay(const std::string& path);
  Expected<void> placeKernelTree(const std::string& path);
  Expected<void> placeSharedMemory();
  Expected<void> graft(const std::string& source, const std::string& path);
  Expected<Descriptor> makeMountPoint(const std::string& path, bool folder);
  Expected<void> writeMarker();

  [[nodiscard]] bool mustSplit(const std::string& path) const;
  [[nodiscard]] std::string inDevice(const std::string& path) const { return device_ + "/" + path; }

  std::string device_;
  std::vector<MountPoint> machineMounts_;
  Descriptor top_;
};

// Whether `path` (without leading "/") is one of kDeviceDirectories.
[[nodiscard]] bool isDeviceDirectory(const std::string& path);
// Whether `path` is such a folder or contains one.
[[nodiscard]] bool holdsDeviceDirectory(const std::string& path);

}  // namespace quillon::device
