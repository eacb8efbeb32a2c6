#include "launcher/runtime_settings.h"

#include <cstdlib>

namespace quillon::launcher {
namespace {

void apply(const char* variable, const std::optional<bool>& chosen) {
  if (chosen) setenv(variable, *chosen ? "1" : "0", 1);
}

}  // namespace

void applySettings(const RuntimeSettings& settings) {
  apply("DOTNET_TieredCompilation", settings.tieredCompilation);
  apply("DOTNET_TC_QuickJitForLoops", settings.quickJitForLoops);
  apply("DOTNET_TieredPGO", settings.tieredPgo);
  apply("DOTNET_ReadyToRun", settings.readyToRun);
  apply("DOTNET_EnableWriteXorExecute", settings.writeXorExecute);
  apply("DOTNET_EnableDiagnostics", settings.diagnostics);
}

}  // namespace quillon::launcher
