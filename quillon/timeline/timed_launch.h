// A launch that leaves a picture of itself.
#pragma once

#include <filesystem>
#include <string>

#include "quillon/base/failure.h"
#include "quillon/host/application/options.h"

namespace quillon::timeline {

// Launches as launch() does, in a child process, since the application may end in ways in which
// nothing of its process can write any more. Writes the page options.timeline, and the trace events
// beside it with the extension ".json"; both files are replaced.
//
// The child shares everything with this process, which passes on the signals that it is sent, ends
// with the child's status or by the child's signal, and does not outlive it; nor the child this
// process. The process must have one thread.
int launchWithTimeline(const host::LaunchOptions& options);

// Writes the page of a trace. Fails where one of the files cannot be used.
[[nodiscard]] Expected<void> writeTimelinePage(const std::filesystem::path& trace,
                                               const std::filesystem::path& page,
                                               const std::string& title);

}  // namespace quillon::timeline
