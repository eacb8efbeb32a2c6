#include "plugin/src/plugin-dotnet-inhouse/plugin_dotnet_inhouse.h"

#include <utility>
#include <vector>

#include "device_paths.h"
#include "plugin/include-internal/strategy-construction.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/cached_list.h"
#include "plugin/src/plugin-util/library_preload.h"
#include "plugin/src/plugin-util/platform_lists.h"
#include "plugin/src/plugin-util/privileges.h"
#include "util/log/log.h"

namespace {

constexpr CachedList kTpaList = {
    device_paths::kTpaCache,
    "[quillon-tv-plugin] TPA Cache file was crashed.",
    "[quillon-tv-plugin] Get TPA by cache file",
};

}  // namespace

PluginDotnetInhouse::PluginDotnetInhouse() {
  QLOG_SCOPE();
  prepareForStrategy();
}

void PluginDotnetInhouse::Initialize() {
  QLOG_SCOPE();
  QLOG_INFO("### PluginDotnetInhouse Initialize called ###");
}

void PluginDotnetInhouse::Preload() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin_preload called ###");
  preloadSharedLibraries();
}

void PluginDotnetInhouse::SetAppInfo(const string& appId, const string& execPath) {
  QLOG_SCOPE();
  QLOG_INFO("### SetAppInfo ###");
  checkAppHasPlatformPrivilege();
  _SetAppInfo(appId, execPath);
}

std::string PluginDotnetInhouse::GetDllPath() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin get dll path called ###");
  std::string path = device_paths::kPlatformLibraries;
  path.append(":").append(device_paths::kTvAppApi);
  appendCobaDirectories(path);
  QLOG_DEBUG("GetDllPath: %s", path.c_str());
  return path;
}

std::string PluginDotnetInhouse::GetExtraDllPath() {
  QLOG_SCOPE();
  return {};
}

std::string PluginDotnetInhouse::GetTPA() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] GetTPA Start");
  std::string tpa = GetTPAFromCache();
  TTraceLog("[quillon-tv-plugin] GetTPA Finish");
  return tpa;
}

void PluginDotnetInhouse::Finalize() { QLOG_SCOPE(); }

std::string PluginDotnetInhouse::GetTPAFromCache() {
  QLOG_SCOPE();
  return readCachedListOr(kTpaList, [this] { return GetTPAAndSaveAsCache(); });
}

std::string PluginDotnetInhouse::GetTPAAndSaveAsCache() {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] Get TPA by searching.");
  std::vector<std::string> directories = runtimeDirectories();
  appendApiDirectories(platformApiDirectory(), directories);
  std::string tpa = findAssemblies(std::move(directories), GetDllPath());
  saveCachedList(device_paths::kTpaCacheName, tpa);
  return tpa;
}
