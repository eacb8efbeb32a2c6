// quillon zone start NAME --device DIR [--visible PATH]...
// quillon zone stop NAME --device DIR
// quillon zone list --device DIR
#pragma once

#include <CLI/App.hpp>

namespace quillon {

void addZoneCommand(CLI::App& app);

}  // namespace quillon
