// quillon package: the packages of a device root.
#pragma once

#include "tools/command.h"

namespace quillon {

// Adds "package" with "install", "remove" and "list".
void addPackageCommand(CLI::App& app);

}  // namespace quillon
