// The strategy of application types that contain "normal": applications compiled ahead of time. The
// device API can be redirected by configuration, and every platform DPC directory is searched.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetAot : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then throws the cached lists away where they no longer
  // belong to the device's runtime.
  PluginDotnetAot();

  void Initialize() override;

  // Loads the listed native libraries.
  void Preload() override;

  // Ends the process with status 0 when the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // The platform's libraries, each of its DPC directories, the TV application API, then the CoBA
  // shared directories.
  std::string GetDllPath() override;

  // Empty: only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Searched at every call.
  std::string GetTPA() override;

  void Finalize() override;

  // Scans the assembly directories. Saves nothing, whatever its name says.
  std::string GetTPAAndSaveAsCache();

 private:
  std::string dllPath_;  // what GetDllPath last made
};
