#include "plugin/src/plugin-dotnet-aot/plugin_dotnet_aot.h"

#include <utility>
#include <vector>

#include "device_paths.h"
#include "platform/vconf.h"
#include "plugin/include-internal/strategy-construction.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/library_preload.h"
#include "plugin/src/plugin-util/platform_lists.h"
#include "plugin/src/plugin-util/privileges.h"
#include "util/log/log.h"
#include "util/malloc_text.h"
#include "util/zq_utils/directory_walk.h"

PluginDotnetAot::PluginDotnetAot() {
  QLOG_SCOPE();
  prepareForStrategy();
}

void PluginDotnetAot::Initialize() {
  QLOG_SCOPE();
  QLOG_INFO("### PluginDotnetAot Initialize called ###");
}

void PluginDotnetAot::Preload() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin_preload called ###");
  preloadSharedLibraries();
}

void PluginDotnetAot::SetAppInfo(const string& appId, const string& execPath) {
  QLOG_SCOPE();
  QLOG_INFO("### SetAppInfo ###");
  checkAppHasPlatformPrivilege();
  _SetAppInfo(appId, execPath);
}

std::string PluginDotnetAot::GetDllPath() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin get dll path called ###");
  dllPath_ = device_paths::kPlatformLibraries;
  scanDirsInDirectory(device_paths::kDpc, [this](const std::string& path, const char*) {
    dllPath_.append(":").append(path);
  });
  dllPath_.append(":").append(device_paths::kTvAppApi);
  appendCobaDirectories(dllPath_);
  QLOG_DEBUG("GetDllPath: %s", dllPath_.c_str());
  return dllPath_;
}

std::string PluginDotnetAot::GetExtraDllPath() {
  QLOG_SCOPE();
  return {};
}

std::string PluginDotnetAot::GetTPA() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] GetTPA Start");
  std::string tpa = GetTPAAndSaveAsCache();
  TTraceLog("[quillon-tv-plugin] GetTPA Finish");
  return tpa;
}

void PluginDotnetAot::Finalize() { QLOG_SCOPE(); }

std::string PluginDotnetAot::GetTPAAndSaveAsCache() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] Get TPA by searching.");
  std::vector<std::string> directories = runtimeDirectories();
  const MallocText configured(vconf_get_str(device_paths::kApiDirectoryKey));
  if (configured != nullptr) {  // not checked; may be empty or missing
    QLOG_DEBUG("Device API Directory is set by vconf : %s", configured.get());
    appendApiDirectories(configured.get(), directories);
  } else {
    appendApiDirectories(platformApiDirectory(), directories);
  }
  return findAssemblies(std::move(directories), GetDllPath());
}
