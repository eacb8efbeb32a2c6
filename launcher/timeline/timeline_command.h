// quillon timeline: the picture of a trace.
#pragma once

#include <CLI/App.hpp>

namespace quillon::launcher {

void addTimelineCommand(CLI::App& app);

}  // namespace quillon::launcher
