#include "bench/launch/parts.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>

#include "bench/launch/site.h"
#include "bench/quantile.h"
#include "quillon/base/files.h"
#include "quillon/timeline/timeline.h"
#include "quillon/timeline/timeline_picture.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;
using timeline::Timeline;
using timeline::TimelineEntry;
using timeline::TimelineThread;

constexpr char kTrace[] = "/tmp/quillon-bench-trace.json";  // in the device root
constexpr char kTraced[] = "QUILLON_TRACE=/tmp/quillon-bench-trace.json";
constexpr std::array kRows = {kStockHost, kBareHost, kDirectLaunch, kPreparedMessage, kOwnMessage};
constexpr std::string_view kBegin = "<!-- parts: begin -->\n";
constexpr std::string_view kEnd = "<!-- parts: end -->";

// A span of several launches. Times are in microseconds since the request.
struct Step {
  TimelineEntry entry;
  std::vector<double> starts;
  std::vector<double> ends;
};

// The steps of one thread. Steps of one name are told apart by their number.
struct Steps {
  std::vector<Step> steps;
  std::map<std::pair<std::string, int>, size_t> known;

  void add(const TimelineEntry& entry, int number, double start, double end) {
    const auto [found, isNew] = known.try_emplace({entry.name, number}, steps.size());
    if (isNew) {
      steps.push_back({entry, {}, {}});
    }
    steps[found->second].starts.push_back(start);
    steps[found->second].ends.push_back(end);
  }
};

// The launches of one contender.
struct Launches {
  std::vector<double> totals;  // microseconds from the request to the first output
  std::vector<Steps> threads;
};

double microseconds(std::chrono::steady_clock::time_point time) {
  return std::chrono::duration<double, std::micro>(time.time_since_epoch()).count();
}

// Adds the spans that began before the first output.
void addTrace(Launches& launches, const Timeline& trace, double request, double total) {
  for (size_t i = 0; i < trace.threads.size(); ++i) {
    launches.threads.resize(std::max(launches.threads.size(), i + 1));
    std::map<std::string, int> numbers;
    for (const TimelineEntry& entry : trace.threads[i].entries) {
      const double start = entry.start + trace.origin - request;
      if (!entry.isMark && start < total) {
        launches.threads[i].add(entry, numbers[entry.name]++, start,
                                std::min(entry.end + trace.origin - request, total));
      }
    }
  }
}

// The median of a step. Steps that few launches have are left out.
std::vector<TimelineEntry> mediansOf(const Steps& steps, size_t launches) {
  std::vector<TimelineEntry> entries;
  for (const Step& step : steps.steps) {
    if (step.starts.size() * 2 > launches) {
      entries.push_back(step.entry);
      entries.back().start = median(step.starts);
      entries.back().end = median(step.ends);
      entries.back().isOpen = false;
    }
  }
  return entries;
}

void addThreads(Timeline& all, const std::string& title, const Launches& launches) {
  const double total = median(launches.totals);
  all.end = std::max(all.end, total);
  TimelineThread first{0, 0, {{"request to first output", 0, total, 0, false, false}}, title};
  for (const Steps& thread : launches.threads) {
    std::vector<TimelineEntry> entries = mediansOf(thread, launches.totals.size());
    first.entries.insert(first.entries.end(), entries.begin(), entries.end());
  }
  std::stable_sort(first.entries.begin(), first.entries.end(),
                   [](const auto& a, const auto& b) { return a.start < b.start; });
  all.threads.push_back(std::move(first));
}

std::string tableOf(const Timeline& all) {
  std::string table = "| Launch | Step | Begins, ms | Takes, ms | Share |\n|---|---|---|---|---|\n";
  for (const TimelineThread& launch : all.threads) {
    const double total = launch.entries.front().end;
    for (const TimelineEntry& entry : launch.entries) {
      std::array<char, 64> values{};
      const double taken = entry.end - entry.start;
      std::snprintf(values.data(), values.size(), " | %.2f | %.2f | %.1f %% |\n", entry.start / 1e3,
                    taken / 1e3, taken / total * 100);
      if (entry.depth == 0) {
        table += "| " + launch.title + " | " + entry.name + values.data();
      }
    }
  }
  return table;
}

Expected<void> write(const fs::path& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << text;
  if (stream.flush()) {
    return {};
  }
  return fail("cannot write '" + file.string() + "'", "name the folder docs of the sources");
}

Expected<void> writeResults(const fs::path& docs, const Timeline& all, int rounds) {
  const fs::path page = docs / "launch-speed.md";
  std::string text = readWholeFile(page, kMaxTextSize).value_or("");
  const size_t begin = text.find(kBegin);
  const size_t end = text.find(kEnd);
  if (begin == text.npos || end == text.npos) {
    return fail("'" + page.string() + "' lacks the markers of the table", "name the folder docs");
  }
  text.replace(begin + kBegin.size(), end - begin - kBegin.size(),
               "Medians of " + std::to_string(rounds) + " launches.\n\n" + tableOf(all) + "\n");
  RETURN_IF_FAILED(write(page, text));
  return write(docs / "launch-parts.svg", timelinePicture(all));
}

class Parts {
 public:
  Parts(const PartsOptions& options, const std::vector<Setup>& setups);
  [[nodiscard]] Expected<void> run();

 private:
  [[nodiscard]] Expected<void> measure(size_t contender, bool keep);

  const PartsOptions& options_;
  std::vector<Contender> contenders_;
  std::vector<std::unique_ptr<Site>> sites_;
  std::vector<Launches> launches_;  // of each contender
};

Parts::Parts(const PartsOptions& options, const std::vector<Setup>& setups) : options_(options) {
  for (size_t site = 0; site < setups.size(); ++site) {
    for (Contender& contender : contendersOf(setups[site], setups[site].applications.front())) {
      if (std::find(kRows.begin(), kRows.end(), contender.name) != kRows.end()) {
        contender.site = site;
        contender.environment.emplace_back(kTraced);
        contenders_.push_back(std::move(contender));
      }
    }
  }
  launches_.resize(contenders_.size());
  for (const Setup& setup : setups) {
    sites_.push_back(std::make_unique<Site>(setup, contenders_,
                                            std::chrono::duration<double>(options.wait),
                                            std::vector<std::string>{kTraced}));
  }
}

Expected<void> Parts::measure(size_t contender, bool keep) {
  const Contender& what = contenders_[contender];
  const Site& site = *sites_[what.site];
  const fs::path trace = site.setup().device / fs::path(kTrace).relative_path();
  if (what.pool != Pool::kUnused) {
    RETURN_IF_FAILED(site.launchPad().fill());
  }
  std::ofstream(trace, std::ios::trunc).flush();
  ASSIGN_OR_RETURN(const Run run, what.pool == Pool::kUnused
                                      ? Expected<Run>(site.place().run(contender, Task::kTime))
                                      : site.launchPad().run(contender, what, Task::kTime));
  if (!run.ready) {
    return fail("'" + what.name + "' did not come to its output", "try it without --parts");
  }
  if (!keep) {
    return {};
  }
  launches_[contender].totals.push_back(run.seconds * 1e6);
  if (const auto timeline = timeline::readTimeline(trace)) {  // not of a reference
    addTrace(launches_[contender], *timeline, microseconds(run.start), run.seconds * 1e6);
  }
  return {};
}

Expected<void> Parts::run() {
  for (size_t contender = 0; contender < contenders_.size(); ++contender) {
    const Contender& what = contenders_[contender];
    if (what.pool != Pool::kUnused) {
      RETURN_IF_FAILED(sites_[what.site]->launchPad().start({contender}));
    }
  }
  for (int round = -1; round < options_.rounds; ++round) {
    for (size_t contender = 0; contender < contenders_.size(); ++contender) {
      RETURN_IF_FAILED(measure(contender, round >= 0));
    }
  }
  Timeline all;
  for (size_t contender = 0; contender < contenders_.size(); ++contender) {
    addThreads(all, contenders_[contender].name, launches_[contender]);
  }
  return writeResults(options_.docs, all, options_.rounds);
}

}  // namespace

Expected<void> measureParts(const PartsOptions& options, const std::vector<Setup>& setups) {
  return Parts(options, setups).run();
}

}  // namespace quillon::bench
