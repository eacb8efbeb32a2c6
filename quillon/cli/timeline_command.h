// quillon timeline: the picture of a trace.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addTimelineCommand(CLI::App& app);

}  // namespace quillon::cli
