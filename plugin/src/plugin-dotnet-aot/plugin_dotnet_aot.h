// The strategy for application types that contain "normal": applications compiled ahead of time.
// The configuration can redirect the device API, and all DPC directories of the platform are
// searched.
#pragma once

#include <string>

#include "plugin/include-internal/plugin-strategy.h"

class PluginDotnetAot : public PluginStrategy {
 public:
  // Installs the crash signal handlers, then removes the cached lists if they do not belong to the
  // runtime of the device.
  PluginDotnetAot();

  void Initialize() override;

  // Loads the native libraries of the preload list.
  void Preload() override;

  // Ends the process with status 0 if the platform privilege is missing or the path is refused.
  void SetAppInfo(const string& appId, const string& execPath) override;

  // Returns the platform's libraries, each of its DPC directories, the TV application API, then the
  // CoBA shared directories.
  std::string GetDllPath() override;

  // Returns an empty list; only decorators add extra directories.
  std::string GetExtraDllPath() override;

  // Searches the directories at every call.
  std::string GetTPA() override;

  void Finalize() override;

  // Scans the assembly directories. Despite its name, it saves nothing.
  std::string GetTPAAndSaveAsCache();

 private:
  std::string dllPath_;  // last result of GetDllPath
};
