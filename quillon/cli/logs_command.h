// quillon logs: what detached applications have written.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addLogsCommand(CLI::App& app);

}  // namespace quillon::cli
