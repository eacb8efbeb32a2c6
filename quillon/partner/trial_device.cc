#include "quillon/partner/trial_device.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "quillon/device/device_root.h"
#include "quillon_tv_plugin.h"

namespace quillon::partner {
namespace {

namespace fs = std::filesystem;

Expected<fs::path> makeFolder() {
  std::error_code error;
  std::string path = (fs::temp_directory_path(error) / "quillon-partner-XXXXXX").string();
  if (error || mkdtemp(path.data()) == nullptr) {
    return fail("cannot create the folder '" + path + "': " + std::strerror(errno),
                "set TMPDIR to a folder that you may write to");
  }
  return path;
}

Expected<void> placeKey(const fs::path& key, const fs::path& device) {
  std::error_code error;
  const fs::file_status status = fs::status(key, error);
  if (!fs::is_regular_file(status)) {
    const std::string name = "'" + key.string() + "'";
    return fail(!fs::status_known(status) ? "cannot reach " + name + ": " + error.message()
                : fs::exists(status)      ? name + " is not a regular file"
                                          : "there is no file " + name,
                "give --key PUBLIC.pem");
  }
  const fs::path place = device::pathInDevice(device, QUILLON_PARTNER_PUBLIC_KEY);
  fs::create_directories(place.parent_path(), error);
  fs::copy_file(key, place, error);
  if (error) {
    return fail("cannot copy the key '" + key.string() + "': " + error.message(),
                "give a file that you may read");
  }
  return {};
}

}  // namespace

Expected<TrialDevice> TrialDevice::make(const fs::path& publicKey) {
  ASSIGN_OR_RETURN(fs::path folder, makeFolder());
  TrialDevice trial(std::move(folder));
  RETURN_IF_FAILED(device::init(trial.path(), {}));
  RETURN_IF_FAILED(placeKey(publicKey, trial.path()));
  return trial;
}

TrialDevice::~TrialDevice() {
  std::error_code ignored;
  if (!path_.empty()) {
    fs::remove_all(path_, ignored);
  }
}

TrialDevice::TrialDevice(TrialDevice&& other) noexcept : path_(std::move(other.path_)) {
  other.path_.clear();
}

}  // namespace quillon::partner
