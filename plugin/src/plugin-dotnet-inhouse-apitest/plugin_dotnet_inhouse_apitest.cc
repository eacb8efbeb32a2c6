#include "plugin/src/plugin-dotnet-inhouse-apitest/plugin_dotnet_inhouse_apitest.h"

#include <utility>
#include <vector>

#include "device_paths.h"
#include "plugin/include-internal/strategy-construction.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/platform_lists.h"
#include "plugin/src/plugin-util/privileges.h"
#include "util/log/log.h"

PluginDotnetInhouseApitest::PluginDotnetInhouseApitest() {
  QLOG_SCOPE();
  prepareForStrategy();
}

void PluginDotnetInhouseApitest::Initialize() { QLOG_SCOPE(); }

void PluginDotnetInhouseApitest::Preload() { QLOG_SCOPE(); }

void PluginDotnetInhouseApitest::SetAppInfo(const string& appId, const string& execPath) {
  QLOG_SCOPE();
  QLOG_INFO("### SetAppInfo ###");
  checkAppHasPlatformPrivilege();
  _SetAppInfo(appId, execPath);
}

std::string PluginDotnetInhouseApitest::GetDllPath() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin get dll path called ###");
  std::string path = device_paths::kPlatformLibraries;
  path.append(":").append(device_paths::kTvAppApi);
  appendCobaDirectories(path);
  QLOG_DEBUG("GetDllPath: %s", path.c_str());
  return path;
}

std::string PluginDotnetInhouseApitest::GetExtraDllPath() {
  QLOG_SCOPE();
  return {};
}

std::string PluginDotnetInhouseApitest::GetTPA() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] GetTPA Start");
  std::string tpa = GetTPAAndSaveAsCache();
  TTraceLog("[quillon-tv-plugin] GetTPA Finish");
  return tpa;
}

void PluginDotnetInhouseApitest::Finalize() { QLOG_SCOPE(); }

std::string PluginDotnetInhouseApitest::GetTPAAndSaveAsCache() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] Get TPA by searching.");
  std::vector<std::string> directories = runtimeDirectories();
  appendApiDirectories(platformApiDirectory(), directories);
  return findAssemblies(std::move(directories), GetDllPath());
}
