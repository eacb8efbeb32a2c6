#include "bench/launch/trace_sums.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace quillon::bench {
namespace {

using Calls = std::vector<std::pair<std::string, double>>;

// The file is an array that was never closed: its last comma stands where the bracket belongs.
nlohmann::json eventsOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (const size_t comma = text.rfind(','); comma != text.npos) text[comma] = ']';
  return nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
}

void add(Calls& calls, const std::string& name, double microseconds) {
  const auto known = std::find_if(calls.begin(), calls.end(),
                                  [&](const auto& call) { return call.first == name; });
  if (known == calls.end()) {
    calls.emplace_back(name, microseconds);
  } else {
    known->second += microseconds;
  }
}

}  // namespace

Calls pluginCallsIn(const std::filesystem::path& traceFile) {
  Calls calls;
  std::vector<std::pair<std::string, double>> open;
  const nlohmann::json events = eventsOf(traceFile);
  if (!events.is_array()) return calls;
  for (const auto& event : events) {
    const std::string phase = event.value("ph", "");
    if (event.value("tid", 0) != event.value("pid", 1)) continue;
    if (phase == "B") open.emplace_back(event.value("name", ""), event.value("ts", 0.0));
    if (phase != "E" || open.empty()) continue;
    const auto [name, start] = open.back();
    open.pop_back();
    if (name.rfind("plugin_", 0) == 0) add(calls, name, event.value("ts", 0.0) - start);
  }
  return calls;
}

}  // namespace quillon::bench
