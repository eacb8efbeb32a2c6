#include "quillon/device/working_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "quillon/device/layout.h"
#include "quillon/device/tree_path.h"
#include "quillon/device/view.h"

namespace quillon::device {
namespace {

constexpr std::string_view kSharedMemory = "dev/shm";

bool isIn(std::string_view path, std::string_view folder) {
  return path == folder || isBeneath(path, folder);
}

// Whether a device root has a folder of its own in the place of the machine's.
bool isReplaced(const std::string& path) {
  const std::string_view inTree = std::string_view(path).substr(1);
  return isIn(inTree, kSharedMemory) ||
         std::any_of(kDeviceDirectories.begin(), kDeviceDirectories.end(),
                     [&](std::string_view folder) { return isIn(inTree, folder); });
}

// Reads the identity of ".", which is at `path`.
WorkingDirectory identified(std::string path) {
  struct stat status {};
  if (path.empty() || !isReplaced(path) || stat(".", &status) != 0) {
    return {std::move(path)};
  }
  return {std::move(path), status.st_dev, status.st_ino};
}

}  // namespace

WorkingDirectory workingDirectory() {
  std::error_code error;
  return identified(std::filesystem::current_path(error).string());
}

bool changeTo(const WorkingDirectory& directory) {
  if (chdir(directory.path.c_str()) == 0) {
    const WorkingDirectory found = identified(directory.path);
    if (found.device == directory.device && found.inode == directory.inode) {
      return true;
    }
  }
  std::error_code error;
  std::filesystem::current_path("/", error);
  return false;
}

bool canStayWritable(const std::string& directory) {
  return !holdsDeviceDirectory(directory.substr(1));
}

}  // namespace quillon::device
