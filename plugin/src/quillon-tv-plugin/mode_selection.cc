#include "plugin/src/quillon-tv-plugin/mode_selection.h"

#include <algorithm>
#include <iterator>

#include "plugin/include-internal/dpc-path-manager.h"
#include "plugin/src/plugin-dotnet-inhouse/plugin_dotnet_inhouse.h"
#include "util/log/log.h"

namespace {

struct Mode {
  const char* word;            // selects the mode wherever it occurs in the application type
  const char* milestone;       // null in a mode that has no strategy
  PluginStrategy* (*build)();  // null in a mode that has no strategy
};

// Tested in this order: "inhouseapitest" contains "inhouse".
constexpr Mode kModes[] = {
    {"inhouseapitest", nullptr, nullptr},
    {"inhouse", "[quillon-tv-plugin] Inhouse App",
     []() -> PluginStrategy* { return new DpcPathManagerDecorate(new PluginDotnetInhouse); }},
};

}  // namespace

PluginStrategy* buildStrategyChain(const std::string& appType) {
  const Mode* mode = std::find_if(std::begin(kModes), std::end(kModes), [&](const Mode& candidate) {
    return appType.find(candidate.word) != std::string::npos;
  });
  if (mode == std::end(kModes) || mode->build == nullptr) {
    return nullptr;
  }
  TTraceLog(mode->milestone);
  return mode->build();
}
