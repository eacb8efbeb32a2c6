#include "quillon/timeline/timeline_page.h"

#include <map>
#include <string_view>
#include <vector>

#include "quillon/timeline/entry_texts.h"
#include "quillon/timeline/html_text.h"
#include "quillon/timeline/page_files.h"

namespace quillon::timeline {
namespace {

std::string percent(double part, double whole) { return number(part / whole * 100) + "%"; }

std::string scaleOf(const std::vector<Tick>& ticks, double length) {
  std::string scale;
  for (const Tick& tick : ticks) {
    scale += "<i style='left:" + percent(tick.time, length) + "'>" + tick.text + "</i>";
  }
  return scale;
}

std::string shapeOf(const TimelineEntry& entry, double length) {
  std::string style = "left:" + percent(entry.start, length);
  if (!entry.isMark) {
    style += ";width:" + percent(entry.end - entry.start, length);
  }
  return std::string("<i class='shape ") + classOf(entry) + (entry.isOpen ? " open" : "") +
         "' style='" + style + "'></i>";
}

// A mark has no time span to show alone, so that only spans can be pressed.
std::string rowOf(const TimelineEntry& entry, double length) {
  const std::string pressed =
      entry.isMark ? "" : " role='button' tabindex='0' aria-pressed='false'";
  const std::string times =
      milliseconds(entry.start) + (entry.isMark ? "" : " to " + milliseconds(entry.end));
  return std::string("<div class='row") + (entry.depth > 0 ? " nested'" : "'") + pressed +
         " title='" + times + "' data-start='" + number(entry.start) + "' data-end='" +
         number(entry.end) + "' style='--depth:" + std::to_string(entry.depth) +
         "'><span class='name'>" + escapeHtml(entry.name) + "</span><span class='track'>" +
         shapeOf(entry, length) + "</span><span class='time'>" + labelOf(entry) + "</span></div>\n";
}

std::string threadOf(const TimelineThread& thread, double length) {
  std::string rows = "<h2>" + escapeHtml(titleOf(thread)) + "</h2>\n";
  for (const TimelineEntry& entry : thread.entries) {
    rows += rowOf(entry, length);
  }
  return rows;
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

std::string timelinePage(const Timeline& timeline, const std::string& title) {
  const double length = lengthOf(timeline);
  const std::vector<Tick> ticks = ticksOf(length);
  std::string rows;
  for (const TimelineThread& thread : timeline.threads) {
    rows += threadOf(thread, length);
  }
  return fillFields(kPageHtml, {{"title", escapeHtml(title)},
                                {"style", std::string(kPaletteCss) + kPageCss},
                                {"duration", milliseconds(timeline.end)},
                                {"length", number(length)},
                                {"step", percent(ticks.at(1).time, length)},
                                {"scale", scaleOf(ticks, length)},
                                {"rows", rows},
                                {"script", kPageJs}});
}

}  // namespace quillon::timeline
