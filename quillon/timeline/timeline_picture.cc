#include "quillon/timeline/timeline_picture.h"

#include <algorithm>
#include <string_view>

#include "quillon/timeline/entry_texts.h"
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

// Draws the rows from top to bottom.
class Picture {
 public:
  explicit Picture(const Timeline& timeline) : timeline_(timeline), length_(lengthOf(timeline)) {}

  std::string draw();

 private:
  double xOf(double time) const { return kNamesWidth + time / length_ * kBarsWidth; }
  void drawScale(int height);
  void drawThread(const TimelineThread& thread);
  void drawEntry(const TimelineEntry& entry);
  std::string shapeOf(const TimelineEntry& entry) const;
  std::string nameOf(const TimelineEntry& entry) const;

  const Timeline& timeline_;
  const double length_;
  std::string rows_;
  std::string scale_;
  int y_ = kTop;
};

void Picture::drawScale(int height) {
  for (const Tick& tick : ticksOf(length_)) {
    const std::string x = number(xOf(tick.time));
    scale_ += "<line class='grid' x1='" + x + "' x2='" + x + "' y1='24' y2='" +
              std::to_string(height) + "'/><text class='tick' x='" + x + "' y='17'>" + tick.text +
              "</text>\n";
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

std::string Picture::nameOf(const TimelineEntry& entry) const {
  const int indent = 8 + kIndent * entry.depth;
  return "<svg x='" + std::to_string(indent) + "' y='" + std::to_string(y_) + "' width='" +
         std::to_string(std::max(kNamesWidth - 16 - indent, 1)) + "' height='" +
         std::to_string(kRowHeight) + "'><text class='name" + (entry.isMark ? " dim" : "") +
         "' x='0' y='14'>" + escapeHtml(entry.name) + "</text></svg>";
}

void Picture::drawEntry(const TimelineEntry& entry) {
  rows_ += "<g class='row'><title>" + escapeHtml(entry.name) + "\n" + milliseconds(entry.start) +
           (entry.isMark ? "" : " to " + milliseconds(entry.end)) +
           "</title><rect class='stripe' x='0' y='" + std::to_string(y_) + "' width='" +
           std::to_string(kWidth) + "' height='" + std::to_string(kRowHeight) + "'/>" +
           nameOf(entry) + shapeOf(entry) + "<text class='time' x='" + std::to_string(kWidth - 8) +
           "' y='" + std::to_string(y_ + 14) + "'>" + labelOf(entry) + "</text></g>\n";
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

std::string Picture::draw() {
  for (const TimelineThread& thread : timeline_.threads) {
    drawThread(thread);
  }
  const int height = y_ + 8;
  drawScale(height);
  return "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 " + std::to_string(kWidth) + " " +
         std::to_string(height) + "' role='img'>\n<style>" + kPaletteCss + kPictureCss +
         "</style>\n<rect class='ground' width='100%' height='100%'/>\n<g id='rows'>\n" + rows_ +
         "</g>\n<g id='scale'>\n" + scale_ + "</g>\n</svg>\n";
}

}  // namespace

std::string timelinePicture(const Timeline& timeline) { return Picture(timeline).draw(); }

}  // namespace quillon::timeline
