// Does what `Target` promises. The state it keeps is the process's, since there is one runtime.
#pragma once

#include <platform/vconf.h>
#include <quillon_tv_plugin.h>

#include <string>

// The runtime, as GlobalManager::set_coreclr_info got it. Written before the callback below is
// registered and only read after that, so no lock guards them.
extern void* m_hostHandle_global;
extern unsigned int m_domainId_global;
extern coreclr_create_delegate_ptr m_createDelegate_global;

class GlobalManager {
 public:
  // Reports the runtime's globalization setting, cut to 99 bytes with its name; changes nothing.
  void initialize();

  // Throw std::runtime_error("NotImplementedException"), as before_execute does.
  void set_app_info(const std::string& appInfo);
  std::string get_dll_path();

  // Keeps the runtime and waits for the user's consent to the home screen's data disclaimer, with
  // which the time zone may change. Call once per process.
  void set_coreclr_info(void* hostHandle, unsigned int domainId,
                        coreclr_create_delegate_ptr createDelegate);

  void before_execute();
};

// Runs on the configuration store's thread after a change of the disclaimer key. At the value 1 it
// clears the runtime's time-zone cache and takes its own registration back, so that this happens
// once per process; after a failure it waits for the next change.
void ClearTimeZoneCacheDataCB(keynode_t* keynode, void* userData);
