#include "quillon/resolution/machine_host.h"

#include "quillon/device/device_root.h"
#include "quillon/device/record.h"

namespace quillon::resolution {

std::optional<dotnet::Host> machineHost() {
  const auto device = device::current();
  const auto record = device ? device::readRecord(*device) : device::Record();
  return dotnet::findHost(record ? record->framework : std::nullopt);
}

}  // namespace quillon::resolution
