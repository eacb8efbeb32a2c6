// What the page and the picture of a timeline have in common: texts, classes and the scale.
#pragma once

#include <string>
#include <vector>

#include "quillon/timeline/timeline.h"

namespace quillon::timeline {

// Two decimals.
std::string number(double value);

// Milliseconds with three decimals below ten, else one.
std::string milliseconds(double microseconds);

// The CSS class that gives an entry its colour, by the component that it belongs to.
const char* classOf(const TimelineEntry& entry);

// How long a span took, or when a mark was set.
std::string labelOf(const TimelineEntry& entry);

// The heading of a thread.
std::string titleOf(const TimelineThread& thread);

// The length of the scale: at least one microsecond.
double lengthOf(const Timeline& timeline);

// A line of the scale.
struct Tick {
  double time;       // in microseconds
  std::string text;  // in milliseconds
};

// Two to eleven, at round times.
std::vector<Tick> ticksOf(double length);

}  // namespace quillon::timeline
