// The reader of trace files and the page that shows one. Input: the trace file.
#include <algorithm>
#include <cmath>

#include "quillon/timeline/timeline.h"
#include "quillon/timeline/timeline_page.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"

namespace {

using namespace quillon::timeline;

std::size_t countOf(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

void requireEntry(const TimelineEntry& entry, const Timeline& timeline) {
  FUZZ_REQUIRE(std::isfinite(entry.start) && std::isfinite(entry.end));
  FUZZ_REQUIRE(entry.end <= timeline.end);
  FUZZ_REQUIRE(!entry.isMark || (entry.start == entry.end && !entry.isOpen));
  FUZZ_REQUIRE(entry.depth >= 0);
}

// The page has one row for each entry, and no name adds markup.
void requirePage(const Timeline& timeline, std::size_t entries) {
  static const std::size_t scripts = countOf(timelinePage(Timeline{}, "t"), "<script");
  const std::string page = timelinePage(timeline, "t");
  FUZZ_REQUIRE(countOf(page, "<div class='row") == entries);
  FUZZ_REQUIRE(countOf(page, "<script") == scripts);
  for (const char* wrong : {"'nan'", "'-nan'", "'inf'", "'-inf'"}) {
    FUZZ_REQUIRE(page.find(wrong) == page.npos);
  }
}

}  // namespace

FUZZ_TARGET(timeline) {
  static MemoryFile file("");
  file.replace(bytes);
  const auto timeline = readTimeline(file.path());
  if (!timeline) {
    FUZZ_REQUIRE(timeline.error().what.ends_with("holds no event"));
    return;
  }
  FUZZ_REQUIRE(std::isfinite(timeline->end) && timeline->end >= 0);
  std::size_t entries = 0;
  for (const TimelineThread& thread : timeline->threads) {
    FUZZ_REQUIRE(!thread.entries.empty());
    std::for_each(thread.entries.begin(), thread.entries.end(),
                  [&](const TimelineEntry& entry) { requireEntry(entry, *timeline); });
    entries += thread.entries.size();
  }
  FUZZ_REQUIRE(entries <= static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), '{')));
  requirePage(*timeline, entries);
}
