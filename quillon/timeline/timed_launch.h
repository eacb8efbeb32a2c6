// A launch that writes a page with its timeline.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"
#include "quillon/host/application/options.h"

namespace quillon::timeline {

// Launches as host::launch() does, but in a child process, because the application may end in ways
// after which its process cannot write a file. Writes the page options.timeline, and the trace
// events to the same path with the extension ".json". Replaces both files if they exist.
//
// This process forwards the signals that it receives to the child, and ends with the child's exit
// status or by the signal that ended the child. If one of the two processes dies, so does the
// other. The calling process must have one thread.
int launchWithTimeline(const host::LaunchOptions& options);

// Writes the page of a trace. Fails if the trace cannot be read or the page cannot be written.
[[nodiscard]] Expected<void> writeTimelinePage(const std::filesystem::path& trace,
                                               const std::filesystem::path& page,
                                               const std::string& title);

}  // namespace quillon::timeline
