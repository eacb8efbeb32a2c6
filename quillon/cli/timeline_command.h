// quillon timeline TRACE PAGE: shows a trace in an HTML page.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

void addTimelineCommand(CLI::App& app);

}  // namespace quillon::cli
