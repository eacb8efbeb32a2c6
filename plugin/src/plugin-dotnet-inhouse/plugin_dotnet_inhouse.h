// The strategy of application types that contain "inhouse": the platform's own assemblies, from a
// list that is kept between launches.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetInhouse : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then throws the cached lists away where they no longer
  // belong to the device's runtime.
  PluginDotnetInhouse();

  void Initialize() override;

  // Loads the listed native libraries.
  void Preload() override;

  // Ends the process with status 0 when the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // The platform's libraries, the TV application API, then the CoBA shared directories.
  std::string GetDllPath() override;

  // Empty: only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // The cached list, or one that is built and saved now.
  std::string GetTPA() override;

  void Finalize() override;

  // The cached list; built and saved anew when its file is missing or torn.
  std::string GetTPAFromCache();

  // Scans the assembly directories and saves the list for later launches.
  std::string GetTPAAndSaveAsCache();
};
