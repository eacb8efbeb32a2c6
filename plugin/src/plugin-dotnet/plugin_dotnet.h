// The strategy of application types that contain "dotnet": the assembly list is the launcher's, and
// the application runs in the application zone only.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnet : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then throws the cached lists away where they no longer
  // belong to the device's runtime.
  PluginDotnet();

  // Enters the application zone. Ends the process with status 0 when that fails.
  void Initialize() override;

  // Loads the listed native libraries.
  void Preload() override;

  // Ends the process with status 0 outside the application zone, or when the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // The platform's libraries.
  std::string GetDllPath() override;

  // Empty: only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Empty: the launcher brings its own list.
  std::string GetTPA() override;

  void Finalize() override;

  // Announces the application's start to the hybrid-AOT manager by a folder in "/tmp/hybridAOT",
  // which has to exist: the whole message is the folder's name. Service applications are not
  // announced. For callers that link this class, after SetAppInfo.
  void SendAppInfoToHybridAOTManager();
};
