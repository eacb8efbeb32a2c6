#include "quillon/launchpad/server/zone_view.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "device_paths.h"
#include "workstation/zone_state.h"

namespace quillon::launchpad {

ZoneView::ZoneView(const std::filesystem::path& device)
    : device_(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

bool ZoneView::isCurrent() const {
  if (!device_) {
    return false;
  }
  const std::string zone = device_paths::kAppZoneRoot;
  struct stat current {};
  struct stat visible {};
  const bool exists = fstatat(device_.get(), zone.c_str() + 1, &current, 0) == 0;
  const bool isVisible = stat(zone.c_str(), &visible) == 0;
  if (!exists || !isVisible) {
    return exists == isVisible;
  }
  return current.st_dev == visible.st_dev && current.st_ino == visible.st_ino;
}

}  // namespace quillon::launchpad
