// .NET's own host on this machine, for the device root that the process has entered.
#pragma once

#include <optional>

#include "quillon/dotnet/host_lookup.h"

namespace quillon::resolution {

// The host of the .NET that the device root's framework is part of, else the one that
// dotnet::findHost() finds.
std::optional<dotnet::Host> machineHost();

}  // namespace quillon::resolution
