#include "launcher/launchpad/stamp.h"

#include <device_paths.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <workstation/config_store.h>
#include <workstation/packages.h>
#include <workstation/zone_state.h>

#include <array>
#include <string>
#include <variant>

#include "launcher/launchpad/folder_entries.h"
#include "tools/descriptor.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;
using namespace device_paths;

constexpr std::array kFiles = {kNetcoreapp,
                               kPreloadList,
                               kReadOnlyFlags,
                               kWritableFlags,
                               kObjectTracker,
                               kReflectionEliminator,
                               kUpdatedCertificates,
                               kPlatformCertificates,
                               workstation::kZoneDirectory,
                               workstation::kZoneStateDirectory};

constexpr size_t kUsualSize = 2048;

// A folder's time of change tells of files that came, went or were replaced. The framework itself
// is a mount point in its parent.
void addFoldersOfLists(std::string& stamp) {
  const Descriptor folders(open(kManagedFolders, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  addStamp(stamp, folders.get(), ".");
  for (const std::string& name : namesIn(folders.get())) {
    stamp.append(name) += '\0';
    addStamp(stamp, folders.get(), name.c_str());
  }
}

void addApiDirectory(std::string& stamp) {
  const auto value = workstation::getConfig(kApiDirectoryKey);
  if (value && *value && std::holds_alternative<std::string>(**value)) {
    stamp.append(std::get<std::string>(**value));
  }
  stamp += '\0';
}

template <typename T>
void addBytes(std::string& stamp, const T& value) {
  stamp.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

void addStamp(std::string& stamp, int folder, const char* file) {
  struct stat status {};
  if (fstatat(folder, file, &status, 0) != 0) status = {};  // no file has number 0
  addBytes(stamp, status.st_dev);
  addBytes(stamp, status.st_ino);
  addBytes(stamp, status.st_size);
  addBytes(stamp, status.st_mtim);
}

std::string currentStamp(const fs::path& plugin) {
  std::string stamp = workstation::registryStamp() + '\0';
  stamp.reserve(kUsualSize);
  addFoldersOfLists(stamp);
  addApiDirectory(stamp);
  for (const char* file : kFiles) addStamp(stamp, AT_FDCWD, file);
  addStamp(stamp, AT_FDCWD, plugin.c_str());
  return stamp;
}

}  // namespace quillon::launchpad
