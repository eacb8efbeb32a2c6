#include "quillon/zone/library.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "platform/zone.h"
#include "quillon/base/files.h"
#include "quillon/base/folders.h"
#include "quillon/device/device_root.h"

namespace quillon::zone {

namespace fs = std::filesystem;

Expected<void> placeLibrary(const fs::path& device) {
  const fs::path place = device::pathInDevice(device, ZONE_LIBRARY_PATH);
  std::error_code error;
  if (fs::exists(fs::symlink_status(place, error))) {
    return {};
  }
  const fs::path library = libraryOf(executablePath(), ("quillon" / place.filename()).c_str());
  if (!fs::exists(library, error)) {
    return fail("this installation of quillon has no zone library", "install it again");
  }
  // Copy to a temporary name and rename, so that no process loads an incomplete library.
  const fs::path fresh = place.string() + "." + std::to_string(getpid());
  if (!makeFolders(place.parent_path())) {
    error.assign(errno, std::generic_category());
  } else {
    fs::copy_file(library, fresh, fs::copy_options::overwrite_existing, error);
  }
  if (!error) {
    fs::rename(fresh, place, error);
  }
  if (error) {
    return fail("cannot put the zone library at '" + place.string() + "': " + error.message(),
                "make the folder writable");
  }
  return {};
}

}  // namespace quillon::zone
