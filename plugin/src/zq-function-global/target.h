// What the exported functions ask of the managed runtime's own globals, beside the launch strategy.
#pragma once

#include <quillon_tv_plugin.h>

#include <string>

class Target {
 public:
  virtual ~Target() = default;

  // Called by plugin_initialize, once the strategy is initialised.
  virtual void initialize() = 0;

  // For later use, as before_execute is: nothing calls them today.
  virtual void set_app_info(const std::string& appInfo) = 0;
  virtual std::string get_dll_path() = 0;

  // Called by plugin_set_coreclr_info with the launcher's values.
  virtual void set_coreclr_info(void* hostHandle, unsigned int domainId,
                                coreclr_create_delegate_ptr createDelegate) = 0;

  virtual void before_execute() = 0;
};
