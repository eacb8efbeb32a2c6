// The launch strategy: what the exported functions ask of an application type.
//
// One chain of strategies serves a process. plugin_initialize builds it: the strategy of the
// application type, wrapped by the decorators of its mode. Nothing of the chain is ever destroyed;
// it lives until the process ends.
#pragma once

#include <string>

// Trace lines carry signatures as the compiler spells them. Those of the strategies and decorators
// have always read "const string&"; a std::string parameter would read "const std::string&".
using string = std::string;

class PluginStrategy {
 public:
  virtual ~PluginStrategy() = default;

  // Called by plugin_initialize, once the chain is built.
  virtual void Initialize() = 0;

  // Called by plugin_preload, in a process prepared ahead of its application.
  virtual void Preload() = 0;

  // Called by plugin_set_app_info. May end the process: a refused launch exits with status 0.
  virtual void SetAppInfo(const string& appId, const string& execPath) = 0;

  // Each list is absolute paths joined by ":"; empty where the strategy adds nothing.
  virtual std::string GetDllPath() = 0;
  virtual std::string GetExtraDllPath() = 0;
  virtual std::string GetTPA() = 0;

  // Called by plugin_finalize.
  virtual void Finalize() = 0;
};
