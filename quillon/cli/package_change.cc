#include "quillon/cli/package_change.h"

#include <string>
#include <vector>

#include "quillon/device/device_root.h"

namespace quillon::cli {

Expected<workstation::Package> installInto(const std::filesystem::path& device,
                                           const workstation::ManifestText& manifest, uid_t user) {
  // Check the manifest before entering the device root, which may hide its folders.
  ASSIGN_OR_RETURN(const std::vector<std::string> folders,
                   workstation::foldersOfManifest(manifest));
  RETURN_IF_FAILED(device::enter(device, {{folders.begin(), folders.end()}, {}}));
  return changePackages([&] { return workstation::installPackage(manifest, user); });
}

}  // namespace quillon::cli
