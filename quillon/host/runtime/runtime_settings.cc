#include "quillon/host/runtime/runtime_settings.h"

#include <algorithm>
#include <cstdlib>

namespace quillon::host {
namespace {

void apply(const char* variable, const std::optional<bool>& setting) {
  if (setting) {
    setenv(variable, *setting ? "1" : "0", 1);
  }
}

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

ScopedVariable::ScopedVariable(const char* name, const char* value,
                               std::initializer_list<const char*> overrides)
    : name_(name), isOwner_(std::none_of(overrides.begin(), overrides.end(), isSet)) {
  if (isOwner_) {
    setenv(name_, value, 1);
  }
}

ScopedVariable::~ScopedVariable() {
  if (isOwner_) {
    unsetenv(name_);
  }
}

// The runtime reads its settings under both prefixes.
ScopedLttngOff::ScopedLttngOff()
    : ScopedVariable("DOTNET_LTTng", "0",
                     {"DOTNET_LTTng", "DOTNET_EnableEventLog", "COMPlus_EnableEventLog"}) {}

ScopedJitThreadKeepAlive::ScopedJitThreadKeepAlive()
    : ScopedVariable(
          "DOTNET_TC_BackgroundWorkerTimeoutMs", "FFFFFFFF",
          {"DOTNET_TC_BackgroundWorkerTimeoutMs", "COMPlus_TC_BackgroundWorkerTimeoutMs"}) {}

}  // namespace quillon::host
