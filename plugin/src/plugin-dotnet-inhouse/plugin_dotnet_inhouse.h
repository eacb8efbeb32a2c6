// The strategy for application types that contain "inhouse": the platform's own assemblies, from a
// list that is cached between launches.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetInhouse : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then removes the cached lists if they do not belong to the
  // runtime of the device.
  PluginDotnetInhouse();

  void Initialize() override;

  // Loads the native libraries of the preload list.
  void Preload() override;

  // Ends the process with status 0 if the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // Returns the platform's libraries, the TV application API, then the CoBA shared directories.
  std::string GetDllPath() override;

  // Returns an empty list; only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Returns the cached list, or builds and saves a new one.
  std::string GetTPA() override;

  void Finalize() override;

  // Returns the cached list. If its file is missing or incomplete, builds and saves a new one.
  std::string GetTPAFromCache();

  // Scans the assembly directories and saves the list for later launches.
  std::string GetTPAAndSaveAsCache();
};
