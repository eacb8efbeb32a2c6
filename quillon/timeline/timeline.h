// One launch as spans and marks on a line of time, read from trace events.
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
  double end = 0;  // that of a mark is its start
  int depth = 0;   // spans around it
  bool isMark = false;
  bool isOpen = false;  // the trace ends before the span does
};

// What one thread did, in the order in which it began.
struct TimelineThread {
  int process = 0;
  int thread = 0;
  std::vector<TimelineEntry> entries;
};

struct Timeline {
  double end = 0;
  std::vector<TimelineThread> threads;  // in the order in which they come up
};

// Reads the events of docs/workstation-log-and-trace.md. A line that is no event, such as the last
// one of a process that was killed while it wrote, is left out. Fails where the file cannot be read
// or holds no event.
[[nodiscard]] Expected<Timeline> readTimeline(const std::filesystem::path& traceFile);

// Makes a trace that nobody writes to any more a whole JSON array: leaves out what follows the last
// whole event and closes the array. Fails where the file cannot be written.
[[nodiscard]] Expected<void> closeTrace(const std::filesystem::path& traceFile);

}  // namespace quillon::timeline
