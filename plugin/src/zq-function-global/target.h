// Operations on global state of the managed runtime that the exported functions perform in addition
// to the launch strategy.
#pragma once

#include <string>

#include "quillon_tv_plugin.h"

class Target {
 public:
  virtual ~Target() = default;

  // Called by plugin_initialize after the strategy is initialized.
  virtual void initialize() = 0;

  // Reserved, like before_execute: not called.
  virtual void set_app_info(const std::string& appInfo) = 0;
  virtual std::string get_dll_path() = 0;

  // Called by plugin_set_coreclr_info with the launcher's values.
  virtual void set_coreclr_info(void* hostHandle, unsigned int domainId,
                                coreclr_create_delegate_ptr createDelegate) = 0;

  virtual void before_execute() = 0;
};
