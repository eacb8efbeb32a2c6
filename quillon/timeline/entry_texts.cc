#include "quillon/timeline/entry_texts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "quillon/timeline/html_text.h"

namespace quillon::timeline {
namespace {

constexpr int kMaxTicks = 10;
constexpr double kMicrosecondsPerMs = 1000;

// The smallest step of 1, 2 or 5 times a power of ten with which the scale has at most kMaxTicks
// steps.
double tickStep(double length) {
  const double min = length / kMaxTicks;
  const double power = std::pow(10, std::floor(std::log10(min)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= min) {
      return factor * power;
    }
  }
  return 10 * power;
}

}  // namespace

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  return text.data();
}

std::string milliseconds(double microseconds) {
  const double ms = microseconds / kMicrosecondsPerMs;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f ms", ms < 10 ? 3 : 1, ms);
  return text.data();
}

const char* classOf(const TimelineEntry& entry) {
  if (entry.isMark) {
    return "mark";
  }
  if (entry.name.starts_with("coreclr_") || entry.name == "load the runtime's libraries") {
    return "runtime";
  }
  if (entry.name.starts_with("plugin_")) {
    return "plugin";
  }
  return entry.depth == 0 ? "launcher" : "inner";
}

std::string labelOf(const TimelineEntry& entry) {
  if (entry.isMark) {
    return "at " + milliseconds(entry.start);
  }
  return entry.isOpen ? "did not end" : milliseconds(entry.end - entry.start);
}

std::string titleOf(const TimelineThread& thread) {
  if (!thread.title.empty()) {
    return thread.title;
  }
  const bool isMain = thread.process == thread.thread;
  return "process " + std::to_string(thread.process) +
         (isMain ? "" : ", thread " + std::to_string(thread.thread));
}

double lengthOf(const Timeline& timeline) { return std::max(timeline.end, 1.0); }

std::vector<Tick> ticksOf(double length) {
  const double step = tickStep(length);
  std::vector<Tick> ticks;
  for (int i = 0; i * step <= length; ++i) {
    ticks.push_back({i * step, withoutTrailingZeros(number(i * step / kMicrosecondsPerMs))});
  }
  return ticks;
}

}  // namespace quillon::timeline
