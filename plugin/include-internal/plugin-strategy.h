// The launch strategy: the operations that the exported functions need for an application type.
//
// Each process has one chain of strategies. plugin_initialize builds it: the strategy of the
// application type, wrapped by the decorators of its mode. The chain is never destroyed.
#pragma once

#include <string>

// Trace lines contain function signatures as the compiler prints them. Those of the strategies and
// decorators must read "const string&"; a std::string parameter would print as "const
// std::string&".
using string = std::string;

class PluginStrategy {
 public:
  virtual ~PluginStrategy() = default;

  // Called by plugin_initialize after the chain is built.
  virtual void Initialize() = 0;

  // Called by plugin_preload, before the application is known.
  virtual void Preload() = 0;

  // Called by plugin_set_app_info. If the launch is refused, the process ends with status 0.
  virtual void SetAppInfo(const string& appId, const string& execPath) = 0;

  // Each returns absolute paths separated by ":", or an empty string if the strategy adds nothing.
  virtual std::string GetDllPath() = 0;
  virtual std::string GetExtraDllPath() = 0;
  virtual std::string GetTPA() = 0;

  // Called by plugin_finalize.
  virtual void Finalize() = 0;
};
