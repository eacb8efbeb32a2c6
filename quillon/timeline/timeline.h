// The spans and marks of one launch, read from a file of trace events.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "quillon/base/failure.h"

namespace quillon::timeline {

// Times are in microseconds since the first event of the trace.
struct TimelineEntry {
  std::string name;
  double start = 0;
  double end = 0;  // equal to start for a mark
  int depth = 0;   // number of spans around it
  bool isMark = false;
  bool isOpen = false;  // the span has no end in the trace
};

// The entries of one thread, in the order of their starts.
struct TimelineThread {
  int process = 0;
  int thread = 0;
  std::vector<TimelineEntry> entries;
  std::string title = {};  // shown instead of the numbers
};

struct Timeline {
  double end = 0;
  std::vector<TimelineThread> threads;  // in the order of their first events
  double origin = 0;                    // of the first event, on CLOCK_MONOTONIC
};

// Reads the events that docs/workstation-log-and-trace.md describes. Ignores lines that are not
// events, such as an incomplete last line of a process that was killed. Fails if the file cannot be
// read or contains no event.
[[nodiscard]] Expected<Timeline> readTimeline(const std::filesystem::path& traceFile);

// Makes a trace a complete JSON array: removes the bytes after the last complete event and closes
// the array. No process may write to the file any more. Fails if the file cannot be written.
[[nodiscard]] Expected<void> closeTrace(const std::filesystem::path& traceFile);

}  // namespace quillon::timeline
