// The strategy for application types that contain "dotnet": the launcher provides the assembly
// list, and the application may run only in the application zone.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnet : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then removes the cached lists if they do not belong to the
  // runtime of the device.
  PluginDotnet();

  // Enters the application zone. Ends the process with status 0 on failure.
  void Initialize() override;

  // Loads the native libraries of the preload list.
  void Preload() override;

  // Ends the process with status 0 if it is not in the application zone or if the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // Returns the directory of the platform's libraries.
  std::string GetDllPath() override;

  // Returns an empty list; only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Returns an empty list; the launcher uses its own list.
  std::string GetTPA() override;

  void Finalize() override;

  // Notifies the hybrid-AOT manager that the application starts, by creating a directory in
  // "/tmp/hybridAOT", which must exist. The name of the directory is the whole message. Does
  // nothing for service applications. Callers that link this class call it after SetAppInfo.
  void SendAppInfoToHybridAOTManager();
};
