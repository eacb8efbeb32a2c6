#include "launcher/runtime_settings.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace quillon::launcher {
namespace {

void apply(const char* variable, const std::optional<bool>& chosen) {
  if (chosen) setenv(variable, *chosen ? "1" : "0", 1);
}

constexpr char kProvider[] = "DOTNET_LTTng";
// The runtime takes its settings under both prefixes.
constexpr std::array<const char*, 3> kTracing = {kProvider, "DOTNET_EnableEventLog",
                                                 "COMPlus_EnableEventLog"};

bool isSet(const char* variable) { return std::getenv(variable) != nullptr; }

}  // namespace

void applySettings(const RuntimeSettings& settings) {
  apply("DOTNET_TieredCompilation", settings.tieredCompilation);
  apply("DOTNET_TC_QuickJitForLoops", settings.quickJitForLoops);
  apply("DOTNET_TieredPGO", settings.tieredPgo);
  apply("DOTNET_ReadyToRun", settings.readyToRun);
  apply("DOTNET_EnableWriteXorExecute", settings.writeXorExecute);
  apply("DOTNET_EnableDiagnostics", settings.diagnostics);
}

WithoutIdleTracing::WithoutIdleTracing()
    : isMine_(std::none_of(kTracing.begin(), kTracing.end(), isSet)) {
  if (isMine_) setenv(kProvider, "0", 1);
}

WithoutIdleTracing::~WithoutIdleTracing() {
  if (isMine_) unsetenv(kProvider);
}

}  // namespace quillon::launcher
