#include "quillon/timeline/timeline_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <string_view>

#include "quillon/timeline/html_text.h"
#include "quillon/timeline/page_files.h"

namespace quillon::timeline {
namespace {

constexpr int kNamesWidth = 430;
constexpr int kBarsWidth = 900;
constexpr int kTimesWidth = 110;
constexpr int kWidth = kNamesWidth + kBarsWidth + kTimesWidth;
constexpr int kRowHeight = 20;
constexpr int kTop = 34;
constexpr int kIndent = 14;
constexpr double kMinBarWidth = 1.5;
constexpr int kMaxTicks = 10;
constexpr double kMicrosecondsPerMs = 1000;

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  return text.data();
}

// Milliseconds with three decimals below ten, else one.
std::string milliseconds(double microseconds) {
  const double ms = microseconds / kMicrosecondsPerMs;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f ms", ms < 10 ? 3 : 1, ms);
  return text.data();
}

// The CSS class that gives a row its colour, by the component that the span belongs to.
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

std::string titleOf(const TimelineThread& thread) {
  if (!thread.title.empty()) {
    return thread.title;
  }
  const bool isMain = thread.process == thread.thread;
  return "process " + std::to_string(thread.process) +
         (isMain ? "" : ", thread " + std::to_string(thread.thread));
}

// Draws the rows from top to bottom.
class Picture {
 public:
  explicit Picture(const Timeline& timeline)
      : timeline_(timeline), length_(std::max(timeline.end, 1.0)) {}

  // style  CSS rules for a picture outside of the page
  std::string draw(const std::string& style = {});

 private:
  double xOf(double time) const { return kNamesWidth + time / length_ * kBarsWidth; }
  void drawScale(int height);
  void drawThread(const TimelineThread& thread);
  void drawEntry(const TimelineEntry& entry);
  std::string shapeOf(const TimelineEntry& entry) const;
  std::string labelOf(const TimelineEntry& entry) const;
  std::string nameOf(const TimelineEntry& entry) const;

  const Timeline& timeline_;
  const double length_;
  std::string rows_;
  std::string scale_;
  int y_ = kTop;
};

void Picture::drawScale(int height) {
  const double step = tickStep(length_);
  for (int i = 0; i * step <= length_; ++i) {
    const std::string x = number(xOf(i * step));
    const std::string ms = number(i * step / kMicrosecondsPerMs);
    scale_ += "<line class='grid' x1='" + x + "' x2='" + x + "' y1='24' y2='" +
              std::to_string(height) + "'/><text class='tick' x='" + x + "' y='17'>" +
              withoutTrailingZeros(ms) + "</text>\n";
  }
  scale_ += "<text class='unit' x='" + std::to_string(kNamesWidth - 12) + "' y='17'>ms</text>\n";
}

std::string Picture::shapeOf(const TimelineEntry& entry) const {
  const double x = xOf(entry.start);
  const int middle = y_ + kRowHeight / 2;
  if (entry.isMark) {
    return "<circle class='shape mark' cx='" + number(x) + "' cy='" + std::to_string(middle) +
           "' r='3.5'/>";
  }
  const double width = std::max(xOf(entry.end) - x, kMinBarWidth);
  return "<rect class='shape " + std::string(classOf(entry)) + (entry.isOpen ? " open" : "") +
         "' x='" + number(x) + "' y='" + std::to_string(y_ + 4) + "' width='" + number(width) +
         "' height='" + std::to_string(kRowHeight - 8) + "' rx='2'/>";
}

// At the right edge, where the row has no other label.
std::string Picture::labelOf(const TimelineEntry& entry) const {
  const std::string text = entry.isMark   ? "at " + milliseconds(entry.start)
                           : entry.isOpen ? "did not end"
                                          : milliseconds(entry.end - entry.start);
  return "<text class='time' x='" + std::to_string(kWidth - 8) + "' y='" + std::to_string(y_ + 14) +
         "'>" + text + "</text>";
}

std::string Picture::nameOf(const TimelineEntry& entry) const {
  const int indent = 8 + kIndent * entry.depth;
  return "<svg x='" + std::to_string(indent) + "' y='" + std::to_string(y_) + "' width='" +
         std::to_string(std::max(kNamesWidth - 16 - indent, 1)) + "' height='" +
         std::to_string(kRowHeight) + "'><text class='name" + (entry.isMark ? " dim" : "") +
         "' x='0' y='14'>" + escapeHtml(entry.name) + "</text></svg>";
}

void Picture::drawEntry(const TimelineEntry& entry) {
  rows_ += "<g class='row' data-start='" + number(entry.start) + "' data-end='" +
           number(entry.end) + "'><title>" + escapeHtml(entry.name) + "\n" +
           milliseconds(entry.start) + (entry.isMark ? "" : " to " + milliseconds(entry.end)) +
           "</title><rect class='stripe' x='0' y='" + std::to_string(y_) + "' width='" +
           std::to_string(kWidth) + "' height='" + std::to_string(kRowHeight) + "'/>" +
           nameOf(entry) + shapeOf(entry) + labelOf(entry) + "</g>\n";
  y_ += kRowHeight;
}

void Picture::drawThread(const TimelineThread& thread) {
  y_ += 8;
  rows_ += "<text class='thread' x='8' y='" + std::to_string(y_ + 15) + "'>" +
           escapeHtml(titleOf(thread)) + "</text>\n";
  y_ += kRowHeight + 4;
  for (const TimelineEntry& entry : thread.entries) {
    drawEntry(entry);
  }
}

std::string Picture::draw(const std::string& style) {
  for (const TimelineThread& thread : timeline_.threads) {
    drawThread(thread);
  }
  const int height = y_ + 8;
  drawScale(height);
  return "<svg id='picture' viewBox='0 0 " + std::to_string(kWidth) + " " + std::to_string(height) +
         "' role='img' data-left='" + std::to_string(kNamesWidth) + "' data-width='" +
         std::to_string(kBarsWidth) + "' data-end='" + number(length_) + "'>\n" + style +
         "<g id='rows'>\n" + rows_ + "</g>\n<g id='scale'>\n" + scale_ + "</g>\n</svg>\n";
}

// Replaces each {{name}} of `page` by its value. A value may contain any text, also "{{".
std::string fillFields(std::string_view page,
                       const std::map<std::string_view, std::string>& values) {
  constexpr std::string_view kBegin = "{{";
  constexpr std::string_view kEnd = "}}";
  std::string filled;
  for (size_t begin; (begin = page.find(kBegin)) != page.npos;) {
    const size_t end = page.find(kEnd, begin);
    filled += page.substr(0, begin);
    filled += values.at(page.substr(begin + kBegin.size(), end - begin - kBegin.size()));
    page.remove_prefix(end + kEnd.size());
  }
  return filled.append(page);
}

}  // namespace

std::string timelinePicture(const Timeline& timeline) {
  constexpr std::string_view kTag = "<svg";
  const std::string style = "<style>" + std::string(kPageCss) +
                            "</style>\n<rect class='ground' width='100%' height='100%'/>\n";
  return std::string(kTag) + " xmlns='http://www.w3.org/2000/svg'" +
         Picture(timeline).draw(style).substr(kTag.size());
}

std::string timelinePage(const Timeline& timeline, const std::string& title) {
  return fillFields(kPageHtml, {{"title", escapeHtml(title)},
                                {"style", kPageCss},
                                {"duration", milliseconds(timeline.end)},
                                {"picture", Picture(timeline).draw()},
                                {"script", kPageJs}});
}

}  // namespace quillon::timeline
