// quillon timeline: the picture of a trace.
#pragma once

namespace CLI {
class App;
}

namespace quillon::launcher {

void addTimelineCommand(CLI::App& app);

}  // namespace quillon::launcher
