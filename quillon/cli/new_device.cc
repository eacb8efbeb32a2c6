#include "quillon/cli/new_device.h"

#include <system_error>

#include "quillon/base/exit_status.h"
#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/cli/device_option.h"
#include "quillon/device/certificates.h"
#include "quillon/device/layout.h"
#include "quillon/dotnet/runtime_lookup.h"

namespace quillon::cli {

device::InitOptions initOptions(const std::optional<std::filesystem::path>& framework) {
  std::error_code error;
  std::filesystem::path preload = libraryOf(executablePath(), "quillon/Preload.dll");
  if (!std::filesystem::exists(preload, error)) {
    preload.clear();
  }
  return {framework, preload, device::machineCertificates()};
}

Expected<void> makeDeviceOfUser(const std::filesystem::path& directory) {
  std::error_code error;
  if (directory != deviceOfUser() || std::filesystem::exists(directory / device::kRecord, error)) {
    return {};
  }
  ASSIGN_OR_RETURN(const auto framework, withStatus(kNoRuntime, dotnet::findFramework()));
  RETURN_IF_FAILED(device::init(directory, initOptions(framework.directory)));
  report({"made the device root '" + directory.string() + "' with .NET " + framework.version, {}});
  return {};
}

}  // namespace quillon::cli
