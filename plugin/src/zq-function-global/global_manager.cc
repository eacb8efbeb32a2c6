#include "plugin/src/zq-function-global/global_manager.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "plugin/src/plugin-util/managed_method.h"
#include "util/log/log.h"

#define QUILLON_DISCLAIMER_KEY "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree"

namespace {

constexpr int kAgreed = 1;

// Used for operations that are not implemented.
[[noreturn]] void notImplemented() { throw std::runtime_error("NotImplementedException"); }

int createClearFunction(void** function) {
  const ManagedRuntime runtime = {m_hostHandle_global, m_domainId_global, m_createDelegate_global};
  return createManagedMethod(runtime, "System.Runtime", "System.TimeZoneInfo", "ClearCachedData",
                             function);
}

}  // namespace

void* m_hostHandle_global = nullptr;
unsigned int m_domainId_global = 0;
coreclr_create_delegate_ptr m_createDelegate_global = nullptr;

void GlobalManager::initialize() {
  const char* value = getenv("DOTNET_SYSTEM_GLOBALIZATION_INVARIANT");
  char text[100];
  snprintf(text, sizeof text, "DOTNET_SYSTEM_GLOBALIZATION_INVARIANT :  %s",
           value != nullptr ? value : "(null)");
  QLOG_DEBUG("%s", text);
  TTraceLog(text);
}

void GlobalManager::set_app_info(const std::string&) { notImplemented(); }

std::string GlobalManager::get_dll_path() { notImplemented(); }

void GlobalManager::set_coreclr_info(void* hostHandle, unsigned int domainId,
                                     coreclr_create_delegate_ptr createDelegate) {
  m_hostHandle_global = hostHandle;
  m_domainId_global = domainId;
  m_createDelegate_global = createDelegate;
  vconf_notify_key_changed(QUILLON_DISCLAIMER_KEY, ClearTimeZoneCacheDataCB, nullptr);
}

void GlobalManager::before_execute() { notImplemented(); }

void ClearTimeZoneCacheDataCB(keynode_t* keynode, void*) {
  QLOG_INFO("ClearTimeZoneCacheDataCB");
  if (keynode == nullptr) {
    QLOG_ERROR("ClearTimeZoneCacheDataCB - key is NULL!");
    return;
  }
  const int value = vconf_keynode_get_int(keynode);
  QLOG_INFO(QUILLON_DISCLAIMER_KEY " = %d", value);
  if (value != kAgreed) {
    return;
  }
  void* function = nullptr;
  const int status = createClearFunction(&function);
  if (status < 0) {
    QLOG_ERROR("Create delegate for System.TimeZoneInfo.ClearCacheData() function is fail (0x%08x)",
               static_cast<unsigned int>(status));
    return;
  }
  QLOG_INFO("[quillon-tv-plugin] function ptr: (%p)", function);
  if (function != nullptr) {
    QLOG_INFO("[quillon-tv-plugin] start clearCacheFunction");
    reinterpret_cast<void (*)()>(function)();
    QLOG_INFO("[quillon-tv-plugin] end clearCacheFunction");
    vconf_ignore_key_changed(QUILLON_DISCLAIMER_KEY, ClearTimeZoneCacheDataCB);
  }
}
