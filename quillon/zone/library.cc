#include "quillon/zone/library.h"

#include <unistd.h>

#include <string>
#include <system_error>

#include "platform/zone.h"
#include "quillon/base/files.h"

namespace quillon::zone {
namespace {

namespace fs = std::filesystem;

// Beside this executable: in a build folder, or where both were installed.
fs::path findLibrary() {
  std::error_code error;
  const fs::path bin = executablePath().parent_path();
  const fs::path name = fs::path(ZONE_LIBRARY_PATH).filename();
  for (const char* folder : {"lib", QUILLON_LIBRARY_DIRECTORY}) {
    if (fs::path file = bin.parent_path() / folder / name; fs::exists(file, error)) {
      return file;
    }
  }
  return {};
}

}  // namespace

Expected<void> placeLibrary(const fs::path& device) {
  const fs::path place = device / fs::path(ZONE_LIBRARY_PATH).relative_path();
  std::error_code error;
  if (fs::exists(fs::symlink_status(place, error))) {
    return {};
  }
  const fs::path library = findLibrary();
  if (library.empty()) {
    return fail("this installation of quillon has no zone library", "install it again");
  }
  // Under a name of its own first: nobody may load half a library.
  const fs::path fresh = place.string() + "." + std::to_string(::getpid());
  fs::create_directories(place.parent_path(), error);
  if (!error) fs::copy_file(library, fresh, fs::copy_options::overwrite_existing, error);
  if (!error) fs::rename(fresh, place, error);
  if (error) {
    return fail("cannot put the zone library at '" + place.string() + "': " + error.message(),
                "make the folder writable");
  }
  return {};
}

}  // namespace quillon::zone
