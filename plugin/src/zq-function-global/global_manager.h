// Implements the operations of `Target`. Its state is global, because a process has one runtime.
#pragma once

#include <string>

#include "platform/vconf.h"
#include "quillon_tv_plugin.h"

// The runtime that GlobalManager::set_coreclr_info received. Written before the callback below is
// registered and only read afterwards, so no lock is needed.
extern void* m_hostHandle_global;
extern unsigned int m_domainId_global;
extern coreclr_create_delegate_ptr m_createDelegate_global;

class GlobalManager {
 public:
  // Logs the globalization setting of the runtime, truncated to 99 bytes including its name.
  // Changes nothing.
  void initialize();

  // Throw std::runtime_error("NotImplementedException"), as before_execute does.
  void set_app_info(const std::string& appInfo);
  std::string get_dll_path();

  // Stores the runtime and registers for changes of the user's consent to the data disclaimer of
  // the home screen, because the time zone may change with it. Call once per process.
  void set_coreclr_info(void* hostHandle, unsigned int domainId,
                        coreclr_create_delegate_ptr createDelegate);

  void before_execute();
};

// Runs on a thread of the configuration store after the disclaimer key changed. If the value is 1,
// clears the time-zone cache of the runtime and cancels its own registration, so that this happens
// once per process. After a failure it waits for the next change.
void ClearTimeZoneCacheDataCB(keynode_t* keynode, void* userData);
