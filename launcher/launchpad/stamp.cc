#include "launcher/launchpad/stamp.h"

#include <device_paths.h>
#include <sys/stat.h>
#include <workstation/config_store.h>
#include <workstation/packages.h>
#include <workstation/zone_state.h>

#include <array>
#include <string>

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;
using namespace device_paths;

constexpr std::array kFiles = {kNetcoreapp,          kPreloadList,         kReadOnlyFlags,
                               kWritableFlags,       kObjectTracker,       kReflectionEliminator,
                               kUpdatedCertificates, kPlatformCertificates};

// A folder's time of change tells of files that came, went or were replaced. The framework itself
// is a mount point in its parent.
std::string foldersOfLists() {
  std::string text = stampOf(kManagedFolders);
  std::error_code error;
  for (fs::directory_iterator entry(kManagedFolders, error), end; !error && entry != end;
       entry.increment(error)) {
    text += stampOf(entry->path());
  }
  return text;
}

std::string zone() {
  return stampOf(workstation::kZoneDirectory) + stampOf(workstation::kZoneStateDirectory);
}

std::string apiDirectory() {
  const auto value = workstation::getConfig(kApiDirectoryKey);
  if (!value || !*value || !std::holds_alternative<std::string>(**value)) return ";";
  return std::get<std::string>(**value) + ";";
}

}  // namespace

std::string stampOf(const fs::path& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return "-;";
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) + ":" +
         std::to_string(status.st_size) + ":" + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec) + ";";
}

std::string currentStamp(const fs::path& plugin) {
  std::string text =
      workstation::registryStamp() + ";" + foldersOfLists() + zone() + apiDirectory();
  for (const char* file : kFiles) text += stampOf(file);
  return text + stampOf(plugin);
}

}  // namespace quillon::launchpad
