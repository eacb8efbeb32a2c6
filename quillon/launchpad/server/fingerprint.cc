#include "quillon/launchpad/server/fingerprint.h"

#include <fcntl.h>

#include <array>
#include <string>
#include <variant>

#include "device_paths.h"
#include "quillon/base/descriptor.h"
#include "quillon/base/directory_entries.h"
#include "quillon/base/files.h"
#include "workstation/config_store.h"
#include "workstation/packages.h"
#include "workstation/zone_state.h"

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

constexpr size_t kTypicalSize = 2048;

// A folder's modification time changes when a file in it is added, removed or replaced. Each folder
// is examined itself, because the framework is a mount point in its parent.
void addFoldersOfLists(std::string& fingerprint) {
  const Descriptor folders(open(kManagedFolders, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  appendFileIdentity(fingerprint, folders.get(), ".");
  for (const std::string& name : directoryEntries(folders.get())) {
    fingerprint.append(name) += '\0';
    appendFileIdentity(fingerprint, folders.get(), name.c_str());
  }
}

void addApiDirectory(std::string& fingerprint) {
  const auto value = workstation::getConfig(kApiDirectoryKey);
  if (value && *value && std::holds_alternative<std::string>(**value)) {
    fingerprint.append(std::get<std::string>(**value));
  }
  fingerprint += '\0';
}

}  // namespace

std::string currentFingerprint(const fs::path& plugin) {
  std::string fingerprint = workstation::registryFingerprint() + '\0';
  fingerprint.reserve(kTypicalSize);
  addFoldersOfLists(fingerprint);
  addApiDirectory(fingerprint);
  for (const char* file : kFiles) {
    appendFileIdentity(fingerprint, AT_FDCWD, file);
  }
  appendFileIdentity(fingerprint, AT_FDCWD, plugin.c_str());
  return fingerprint;
}

}  // namespace quillon::launchpad
