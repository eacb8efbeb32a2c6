// The strategy of application types that contain "inhouseapitest": applications that test the
// platform's API. They get the in-house lists, searched anew at every launch, and a process in
// which nothing was loaded ahead of them.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetInhouseApitest : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then throws the cached lists away where they no longer
  // belong to the device's runtime.
  PluginDotnetInhouseApitest();

  void Initialize() override;

  // Loads nothing: a test must not find its libraries loaded already.
  void Preload() override;

  // Ends the process with status 0 when the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // The platform's libraries, the TV application API, then the CoBA shared directories.
  std::string GetDllPath() override;

  // Empty: only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Searched at every call.
  std::string GetTPA() override;

  void Finalize() override;

  // Scans the assembly directories. Saves nothing, whatever its name says.
  std::string GetTPAAndSaveAsCache();
};
