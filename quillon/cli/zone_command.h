// quillon zone start NAME --device DIR [--visible PATH]...
// quillon zone stop NAME --device DIR
// quillon zone list --device DIR
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addZoneCommand(CLI::App& app);

}  // namespace quillon::cli
