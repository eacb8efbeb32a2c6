// The strategy for application types that contain "inhouseapitest": applications that test the
// platform's API. It returns the same lists as the in-house strategy, searches them at every
// launch, and preloads no libraries.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetInhouseApitest : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then removes the cached lists if they do not belong to the
  // runtime of the device.
  PluginDotnetInhouseApitest();

  void Initialize() override;

  // Does nothing: the libraries under test must not be loaded in advance.
  void Preload() override;

  // Ends the process with status 0 if the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // Returns the platform's libraries, the TV application API, then the CoBA shared directories.
  std::string GetDllPath() override;

  // Returns an empty list; only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Searches the directories at every call.
  std::string GetTPA() override;

  void Finalize() override;

  // Scans the assembly directories. Despite its name, it saves nothing.
  std::string GetTPAAndSaveAsCache();
};
