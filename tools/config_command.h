// quillon config: the configuration store of a device root.
#pragma once

#include "tools/command.h"

namespace quillon {

// Adds "config" with "get", "set" and "watch".
void addConfigCommand(CLI::App& app);

}  // namespace quillon
