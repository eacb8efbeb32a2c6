#include "plugin/src/quillon-tv-plugin/mode_selection.h"

#include <algorithm>
#include <iterator>

#include "device_names.h"
#include "plugin/include-internal/dpc-path-manager.h"
#include "plugin/src/plugin-dotnet-aot/plugin_dotnet_aot.h"
#include "plugin/src/plugin-dotnet-inhouse-apitest/plugin_dotnet_inhouse_apitest.h"
#include "plugin/src/plugin-dotnet-inhouse/plugin_dotnet_inhouse.h"
#include "plugin/src/plugin-dotnet/plugin_dotnet.h"
#include "util/log/log.h"

namespace {

struct Mode {
  const char* word;  // selects the mode if the application type contains it
  const char* milestone;
  PluginStrategy* (*build)();
};

PluginStrategy* apitestChain() {
  auto* withDpc = new DpcPathManagerDecorate(new PluginDotnetInhouseApitest);
  return new AotRemoverDecorate(new ApitestDecorate(withDpc));
}

PluginStrategy* inhouseChain() { return new DpcPathManagerDecorate(new PluginDotnetInhouse); }

PluginStrategy* dotnetChain() { return new PluginDotnet; }

PluginStrategy* normalChain() { return new DpcPathManagerDecorate(new PluginDotnetAot); }

// Tested in this order, because "inhouseapitest" contains "inhouse".
constexpr Mode kModes[] = {
    {device_names::kInhouseApitestType, "[quillon-tv-plugin] Inhouse Api Test App", apitestChain},
    {device_names::kInhouseType, "[quillon-tv-plugin] Inhouse App", inhouseChain},
    {device_names::kDotnetType, "[quillon-tv-plugin] DotNET App", dotnetChain},
    {device_names::kNormalType, "[quillon-tv-plugin] Normal", normalChain},
};

}  // namespace

PluginStrategy* buildStrategyChain(const std::string& appType) {
  const Mode* mode = std::find_if(std::begin(kModes), std::end(kModes), [&](const Mode& candidate) {
    return appType.find(candidate.word) != std::string::npos;
  });
  if (mode == std::end(kModes)) {
    return nullptr;
  }
  TTraceLog(mode->milestone);
  return mode->build();
}
