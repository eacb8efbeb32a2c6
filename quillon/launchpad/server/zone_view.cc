#include "quillon/launchpad/server/zone_view.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "workstation/zone_state.h"

namespace quillon::launchpad {

ZoneView::ZoneView(const std::filesystem::path& device)
    : device_(open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

bool ZoneView::isCurrent() const {
  if (!device_) return false;
  const std::string zone = std::string(workstation::kZoneDirectory) + "/appzone";
  struct stat there {};
  struct stat seen {};
  const bool isThere = fstatat(device_.get(), zone.c_str() + 1, &there, 0) == 0;
  const bool isSeen = stat(zone.c_str(), &seen) == 0;
  if (!isThere || !isSeen) return isThere == isSeen;
  return there.st_dev == seen.st_dev && there.st_ino == seen.st_ino;
}

}  // namespace quillon::launchpad
