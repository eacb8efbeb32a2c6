#include "quillon/cli/device_option.h"

#include "quillon/cli/command.h"
#include "quillon/device/device_root.h"

namespace quillon::cli {

CLI::Option* addDeviceOption(CLI::App& command, std::filesystem::path& directory) {
  directory = defaultDevice();
  return command.add_option(kDeviceOption, directory, kDeviceHelp)
      ->type_name(kDeviceValue)
      ->required(directory.empty());
}

void enterDevice(const std::filesystem::path& directory,
                 const std::vector<std::filesystem::path>& visible) {
  valueOf(device::enter(directory, {visible, {}}));
}

}  // namespace quillon::cli
