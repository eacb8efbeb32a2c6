#include "quillon/device/zone_holder.h"

#include <fcntl.h>

#include <string>
#include <system_error>

#include "quillon/device/device_root.h"
#include "workstation/zone_state.h"

namespace quillon::device {

namespace fs = std::filesystem;

Descriptor findZoneHolder(const fs::path& device) {
  const fs::path states = pathInDevice(device, workstation::kZoneStateDirectory);
  const Descriptor folder(open(states.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::error_code error;
  for (fs::directory_iterator entry(states, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!workstation::isZoneName(name.c_str())) {
      continue;
    }
    pid_t pid = -1;
    if (Descriptor running(workstation::openZoneHolder(folder.get(), name.c_str(), pid)); running) {
      return running;
    }
  }
  return Descriptor();
}

}  // namespace quillon::device
