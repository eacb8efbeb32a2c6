#include "launcher/runtime_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace quillon::launcher {
namespace {

using Setting = std::optional<bool> RuntimeSettings::*;

std::string valueOf(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr ? value : "(unset)";
}

TEST(RuntimeSettings, EachIsItsOwnVariableAndOthersStay) {
  const std::pair<Setting, const char*> all[] = {
      {&RuntimeSettings::tieredCompilation, "DOTNET_TieredCompilation"},
      {&RuntimeSettings::quickJitForLoops, "DOTNET_TC_QuickJitForLoops"},
      {&RuntimeSettings::tieredPgo, "DOTNET_TieredPGO"},
      {&RuntimeSettings::readyToRun, "DOTNET_ReadyToRun"},
      {&RuntimeSettings::writeXorExecute, "DOTNET_EnableWriteXorExecute"},
      {&RuntimeSettings::diagnostics, "DOTNET_EnableDiagnostics"}};
  for (const auto& [chosen, variable] : all) {
    for (const auto& [setting, other] : all) unsetenv(other);
    RuntimeSettings settings;
    settings.*chosen = false;
    applySettings(settings);
    for (const auto& [setting, other] : all) {
      EXPECT_EQ(valueOf(other), setting == chosen ? "0" : "(unset)") << variable;
    }
    settings.*chosen = true;
    applySettings(settings);
    EXPECT_EQ(valueOf(variable), "1");
    applySettings({});
    EXPECT_EQ(valueOf(variable), "1");
  }
}

}  // namespace
}  // namespace quillon::launcher
