// The exported functions. Each one calls the strategy chain that plugin_initialize built, or a
// service.
//
// If a function is called before plugin_initialize, there is no chain. This is an error of the
// launcher; the function then behaves as with a chain that adds nothing.
//
// A launcher in C cannot catch exceptions. If memory runs out, a function logs an error and returns
// a neutral result. The functions that check the application end the process instead: an
// application that they have not checked must not start.
#include <sys/capability.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "device_names.h"
#include "plugin/src/quillon-tv-plugin/launch_services.h"
#include "plugin/src/quillon-tv-plugin/mode_selection.h"
#include "plugin/src/quillon-tv-plugin/preload_method.h"
#include "plugin/src/quillon-tv-plugin/process_state.h"
#include "plugin/src/zq-function-global/global_adapter.h"
#include "quillon_tv_plugin.h"
#include "util/log/log.h"
#include "util/log/stream_capture.h"

namespace {

char noPaths[] = "";

constexpr char kDirectCallApplication[] = "com.korvane.tv.csfs";

const char* textOrEmpty(const char* text) { return text != nullptr ? text : ""; }

std::string listOf(std::string (PluginStrategy::*getter)()) {
  return tvPluginMgr != nullptr ? (tvPluginMgr->strategy->*getter)() : std::string();
}

void dropCapabilities() {
  if (is_plugin_preload_called) {
    return;
  }
  const cap_t none = cap_init();
  if (none == nullptr) {
    QLOG_ERROR_OF("plugin_before_execute", "fail to cap_init()");
  }
  if (cap_set_proc(none) < 0) {
    QLOG_ERROR_OF("plugin_before_execute", "fail to cap_set_proc()");
  }
  cap_free(none);
}

void closeErrorCapture() {
  if (stderrFP != nullptr) {
    fclose(stderrFP);
    stderrFP = nullptr;
  }
}

}  // namespace

void plugin_initialize(const char* appType) try {
  QLOG_SCOPE();
  setenv(device_names::kApplicationVariable, "1", 1);
  setenv(device_names::kSocketsHandlerVariable, "0", 1);
  setCetificationFile();
  TTraceLog("[quillon-tv-plugin] plugin_initialize");
  const char* type = textOrEmpty(appType);
  QLOG_INFO("##### AppType : %s", type);
  if (PluginStrategy* chain = buildStrategyChain(type)) {
    tvPluginMgr = new PluginContext{chain};
  } else {
    QLOG_ERROR("Wrong parameter : %s", type);
  }
  if (tvPluginMgr != nullptr) {
    tvPluginMgr->strategy->Initialize();
    globalAdapter->initialize();
  }
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  exit(EXIT_SUCCESS);
}

void plugin_preload() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_preload");
  is_plugin_preload_called = true;
  if (tvPluginMgr != nullptr) {
    tvPluginMgr->strategy->Preload();
  }
  QLOG_INFO("[quillon-tv-plugin] process in Host. preload C# methods");
  void* function = nullptr;
  const int status = createPreloadMethod("Init", &function);
  if (status < 0) {
    QLOG_ERROR("Create delegate for Launch prepared function is fail (0x%08x)",
               static_cast<unsigned int>(status));
  } else if (function != nullptr) {
    reinterpret_cast<void (*)()>(function)();
  }
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
}

void plugin_set_app_info(const char* appId, const char* execPath) try {
  QLOG_SCOPE();
  const char* id = textOrEmpty(appId);
  if (strstr(id, kDirectCallApplication) != nullptr) {
    QLOG_DEBUG("##### It's CSFS #####");
    directCallMode = 1;
  }
  TTraceLog("[quillon-tv-plugin] plugin_set_app_info");
  if (tvPluginMgr != nullptr) {
    tvPluginMgr->strategy->SetAppInfo(id, textOrEmpty(execPath));
  }
  if (IsAllowedToActivateGCTracer(id)) {
    ActivateGCTracer(id);
  }
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  exit(EXIT_SUCCESS);
}

bool plugin_has_log_control() try {
  QLOG_SCOPE();
  static bool __tvIsInit = false;
  TTraceLog("[quillon-tv-plugin] plugin_has_log_control");
  if (!__tvIsInit) {
    __tvIsInit = true;
    if (tvRunLoggingThread() < 0) {
      QLOG_ERROR("Failed to create logging thread");
    }
  }
  return true;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return true;
}

char* plugin_get_tpa() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_get_tpa");
  tpalist = listOf(&PluginStrategy::GetTPA);
  if (tpalist.empty()) {
    return nullptr;
  }
  QLOG_DEBUG("TPA List : %s", tpalist.c_str());
  return tpalist.data();
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return nullptr;
}

char* plugin_get_dll_path() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_get_dll_path");
  plugindllPath = listOf(&PluginStrategy::GetDllPath);
  QLOG_DEBUG("Dll Path : %s", plugindllPath.c_str());
  return plugindllPath.data();
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return noPaths;
}

char* plugin_get_extra_dll_path() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_get_extra_dll_path");
  extraDllPath = listOf(&PluginStrategy::GetExtraDllPath);
  QLOG_DEBUG("Extra Dll Path : %s", extraDllPath.c_str());
  return extraDllPath.data();
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return noPaths;
}

char* plugin_get_native_dll_searching_path() try {
  QLOG_SCOPE();
  return noPaths;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return noPaths;
}

void plugin_set_coreclr_info(void* hostHandle, unsigned int domainId,
                             coreclr_create_delegate_ptr createDelegate) try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_set_coreclr_info");
  m_hostHandle = hostHandle;
  m_domainId = domainId;
  m_createDelegate = createDelegate;
  globalAdapter->set_coreclr_info(hostHandle, domainId, createDelegate);
  if (isObjectTrackerInstalled()) {
    CallFunctionForOT();
  }
  handleDebugPipe();
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
}

void plugin_before_execute() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_before_execute");
  dropCapabilities();
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  dropCapabilities();
}

void plugin_finalize() try {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] plugin_finalize");
  if (tvPluginMgr != nullptr) {
    tvPluginMgr->strategy->Finalize();
  }
  closeErrorCapture();
  checkOnTerminate = true;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  closeErrorCapture();
  checkOnTerminate = true;
}

int is_coba_direct_call_mode() try {
  QLOG_SCOPE();
  return directCallMode;
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
  return directCallMode;
}
