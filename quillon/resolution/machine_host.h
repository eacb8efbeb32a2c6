// .NET's own host on this machine, for the device root that the process has entered.
#pragma once

#include <optional>

#include "quillon/dotnet/host_lookup.h"

namespace quillon::resolution {

// Returns the host beside the device root's framework. If there is none, returns the host beside
// the framework that dotnet::findFramework() finds, or nullopt.
std::optional<dotnet::Host> machineHost();

}  // namespace quillon::resolution
