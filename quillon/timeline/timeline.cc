#include "quillon/timeline/timeline.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include "quillon/base/files.h"

namespace quillon::timeline {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxTraceSize = std::size_t{64} << 20;

// A thread whose events are being read.
struct OpenThread {
  TimelineThread thread;
  std::vector<size_t> open;  // indexes of the entries that are spans without an end so far
};

template <typename Value>
bool fits(const Json& value) {
  if constexpr (std::is_integral_v<Value>) {
    return value.is_number_integer() && std::in_range<Value>(value.get<std::int64_t>());
  }
  return std::is_arithmetic_v<Value> ? value.is_number() : value.is_string();
}

template <typename Value>
Value field(const Json& event, const char* name, Value fallback) {
  const auto found = event.find(name);
  return found != event.end() && fits<Value>(*found) ? found->template get<Value>() : fallback;
}

// Each line is one event, followed by a comma.
Json eventOf(std::string line) {
  if (!line.empty() && line.back() == ',') {
    line.pop_back();
  }
  return Json::parse(line, nullptr, /*allow_exceptions=*/false);
}

class TimelineReader {
 public:
  void add(const Json& event);
  Timeline finish();

 private:
  OpenThread& threadOf(const Json& event);

  std::vector<OpenThread> threads_;
  std::map<std::pair<int, int>, size_t> indexes_;  // of threads_, by process and thread
  bool isFirst_ = true;
  double origin_ = 0;
  double end_ = 0;
};

OpenThread& TimelineReader::threadOf(const Json& event) {
  const int process = field(event, "pid", 0);
  const int thread = field(event, "tid", process);
  const auto [known, isNew] = indexes_.try_emplace({process, thread}, threads_.size());
  if (isNew) {
    threads_.push_back({{process, thread, {}, {}}, {}});
  }
  return threads_[known->second];
}

void TimelineReader::add(const Json& event) {
  const std::string phase = field(event, "ph", std::string());
  if (phase != "B" && phase != "E" && phase != "i") {
    return;
  }
  const double time = field(event, "ts", 0.0);
  if (isFirst_) {
    origin_ = time;
  }
  isFirst_ = false;
  const double at = time - origin_;
  if (!std::isfinite(at)) {
    return;  // no clock shows it
  }
  end_ = std::max(end_, at);
  OpenThread& one = threadOf(event);
  if (phase == "E") {
    if (one.open.empty()) {
      return;
    }
    one.thread.entries[one.open.back()].end = at;
    one.thread.entries[one.open.back()].isOpen = false;
    one.open.pop_back();
    return;
  }
  const bool isMark = phase == "i";
  const auto depth = static_cast<int>(one.open.size());
  if (!isMark) {
    one.open.push_back(one.thread.entries.size());
  }
  one.thread.entries.push_back(
      {field(event, "name", std::string()), at, at, depth, isMark, !isMark});
}

Timeline TimelineReader::finish() {
  Timeline timeline{end_, {}, origin_};
  for (OpenThread& one : threads_) {
    for (const size_t index : one.open) {
      one.thread.entries[index].end = end_;
    }
    if (!one.thread.entries.empty()) {
      timeline.threads.push_back(std::move(one.thread));
    }
  }
  return timeline;
}

Expected<std::string> contentOf(const std::filesystem::path& traceFile) {
  if (auto content = readWholeFile(traceFile, kMaxTraceSize)) {
    return std::move(*content);
  }
  return fail(
      "cannot read the trace '" + traceFile.string() + "': " + fileErrorText(errno, kMaxTraceSize),
      "name a file that QUILLON_TRACE or --timeline wrote");
}

}  // namespace

Expected<Timeline> readTimeline(const std::filesystem::path& traceFile) {
  ASSIGN_OR_RETURN(std::string content, contentOf(traceFile));
  std::istringstream stream(std::move(content));
  TimelineReader reader;
  for (std::string line; std::getline(stream, line);) {
    const Json event = eventOf(line);
    if (event.is_object()) {
      reader.add(event);
    }
  }
  Timeline timeline = reader.finish();
  if (!timeline.threads.empty()) {
    return timeline;
  }
  return fail("the trace '" + traceFile.string() + "' holds no event",
              "name a file that QUILLON_TRACE or --timeline wrote");
}

// Every event ends with a comma and a line break.
Expected<void> closeTrace(const std::filesystem::path& traceFile) {
  ASSIGN_OR_RETURN(const std::string content, contentOf(traceFile));
  const size_t end = content.rfind(",\n");
  std::ofstream stream(traceFile, std::ios::binary | std::ios::trunc);
  stream << (end == std::string::npos ? "[" : content.substr(0, end)) << "\n]\n";
  if (stream.flush()) {
    return {};
  }
  return fail("cannot write the trace '" + traceFile.string() + "'",
              "name a file in a folder that exists and has space");
}

}  // namespace quillon::timeline
