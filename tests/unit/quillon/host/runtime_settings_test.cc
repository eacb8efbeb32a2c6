#include "quillon/host/runtime/runtime_settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace quillon::host {
namespace {

using Setting = std::optional<bool> RuntimeSettings::*;

std::string valueOf(const char* variable) {
  const char* const value = std::getenv(variable);
  return value != nullptr ? value : "(unset)";
}

TEST(RuntimeSettings, EachSetsOnlyItsOwnVariable) {
  const std::pair<Setting, const char*> all[] = {
      {&RuntimeSettings::tieredCompilation, "DOTNET_TieredCompilation"},
      {&RuntimeSettings::quickJitForLoops, "DOTNET_TC_QuickJitForLoops"},
      {&RuntimeSettings::tieredPgo, "DOTNET_TieredPGO"},
      {&RuntimeSettings::readyToRun, "DOTNET_ReadyToRun"},
      {&RuntimeSettings::writeXorExecute, "DOTNET_EnableWriteXorExecute"},
      {&RuntimeSettings::diagnostics, "DOTNET_EnableDiagnostics"}};
  for (const auto& [chosen, variable] : all) {
    for (const auto& [setting, other] : all) {
      unsetenv(other);
    }
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

TEST(ScopedLttngOff, TurnsTheProviderOffByDefault) {
  for (const char* name : {"DOTNET_LTTng", "DOTNET_EnableEventLog", "COMPlus_EnableEventLog"}) {
    unsetenv(name);
  }
  {
    const ScopedLttngOff lttngOff;
    EXPECT_EQ(valueOf("DOTNET_LTTng"), "0");
  }
  EXPECT_EQ(valueOf("DOTNET_LTTng"), "(unset)");
}

TEST(ScopedLttngOff, DoesNothingIfEventsAreConfigured) {
  for (const char* name : {"DOTNET_LTTng", "DOTNET_EnableEventLog", "COMPlus_EnableEventLog"}) {
    setenv(name, "1", 1);
    {
      const ScopedLttngOff lttngOff;
      EXPECT_NE(valueOf("DOTNET_LTTng"), "0") << name;
    }
    EXPECT_EQ(valueOf(name), "1");
    unsetenv(name);
  }
}

TEST(ScopedJitThreadKeepAlive, SetsTheTimeoutUnlessItIsConfigured) {
  constexpr char kName[] = "DOTNET_TC_BackgroundWorkerTimeoutMs";
  constexpr char kOtherName[] = "COMPlus_TC_BackgroundWorkerTimeoutMs";
  for (const char* name : {kName, kOtherName}) {
    unsetenv(name);
  }
  {
    const ScopedJitThreadKeepAlive keepAlive;
    EXPECT_EQ(valueOf(kName), "FFFFFFFF");
  }
  EXPECT_EQ(valueOf(kName), "(unset)");
  for (const char* name : {kName, kOtherName}) {
    setenv(name, "10", 1);
    {
      const ScopedJitThreadKeepAlive keepAlive;
      EXPECT_NE(valueOf(kName), "FFFFFFFF") << name;
    }
    EXPECT_EQ(valueOf(name), "10");
    unsetenv(name);
  }
}

}  // namespace
}  // namespace quillon::host
