#include "quillon/cli/new_device.h"

#include <system_error>

#include "quillon/base/files.h"
#include "quillon/device/certificates.h"

namespace quillon::cli {

device::InitOptions initOptions(const std::optional<std::filesystem::path>& framework) {
  std::error_code error;
  std::filesystem::path preload = libraryOf(executablePath(), "quillon/Preload.dll");
  if (!std::filesystem::exists(preload, error)) {
    preload.clear();
  }
  return {framework, preload, device::machineCertificates()};
}

}  // namespace quillon::cli
