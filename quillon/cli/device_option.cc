#include "quillon/cli/device_option.h"

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/device/device_root.h"

namespace quillon::cli {

void addDeviceOption(CLI::App& command, std::string& directory) {
  command.add_option("--device", directory, "Device root")
      ->envname("QUILLON_DEVICE")
      ->type_name("DIR");
}

void enterDevice(const std::string& directory, const std::vector<std::filesystem::path>& visible) {
  if (directory.empty()) {
    endCommand(
        report({"no device root is given", "give --device DIR or set QUILLON_DEVICE", kUsage}));
  }
  valueOf(device::enter(directory, {visible, {}}));
}

}  // namespace quillon::cli
