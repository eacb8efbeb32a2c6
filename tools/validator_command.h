// quillon validator --device DIR [--plugin FILE] POLICY.toml
#pragma once

#include "tools/command.h"

namespace quillon {

// Adds "validator", which answers applications until it is interrupted.
void addValidatorCommand(CLI::App& app);

}  // namespace quillon
