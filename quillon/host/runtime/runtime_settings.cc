#include "quillon/host/runtime/runtime_settings.h"

#include <algorithm>
#include <cstdlib>

namespace quillon::host {
namespace {

void apply(const char* variable, const std::optional<bool>& chosen) {
  if (chosen) setenv(variable, *chosen ? "1" : "0", 1);
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

RuntimeVariable::RuntimeVariable(const char* name, const char* value,
                                 std::initializer_list<const char*> deciding)
    : name_(name), isMine_(std::none_of(deciding.begin(), deciding.end(), isSet)) {
  if (isMine_) setenv(name_, value, 1);
}

RuntimeVariable::~RuntimeVariable() {
  if (isMine_) unsetenv(name_);
}

// The runtime takes its settings under both prefixes.
WithoutIdleTracing::WithoutIdleTracing()
    : RuntimeVariable("DOTNET_LTTng", "0",
                      {"DOTNET_LTTng", "DOTNET_EnableEventLog", "COMPlus_EnableEventLog"}) {}

WithLastingCompiler::WithLastingCompiler()
    : RuntimeVariable(
          "DOTNET_TC_BackgroundWorkerTimeoutMs", "FFFFFFFF",
          {"DOTNET_TC_BackgroundWorkerTimeoutMs", "COMPlus_TC_BackgroundWorkerTimeoutMs"}) {}

}  // namespace quillon::host
