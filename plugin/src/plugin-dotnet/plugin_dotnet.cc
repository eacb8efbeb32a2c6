#include "plugin/src/plugin-dotnet/plugin_dotnet.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "device_paths.h"
#include "plugin/include-internal/strategy-construction.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/library_preload.h"
#include "plugin/src/plugin-util/security_zone.h"
#include "util/log/log.h"

namespace {

constexpr char kAppLaunchedPrefix[] = "/tmp/hybridAOT/[AppLaunched]";
constexpr mode_t kAppLaunchedMode = 0775;

std::string appLaunchedDirectory(const std::string& packageId, const std::string& appId) {
  return kAppLaunchedPrefix + packageId + ":" + appId + ":" + std::to_string(getpid()) + ":";
}

}  // namespace

PluginDotnet::PluginDotnet() {
  QLOG_SCOPE();
  prepareForStrategy();
}

void PluginDotnet::Initialize() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin EnterSecureZone called ###");
  enterSecureZone();
}

void PluginDotnet::Preload() {
  QLOG_SCOPE();
  QLOG_INFO("### plugin_preload called ###");
  preloadSharedLibraries();
}

void PluginDotnet::SetAppInfo(const string& appId, const string& execPath) {
  QLOG_SCOPE();
  QLOG_INFO("### SetAppInfo ###");
  if (!isInAppZone()) {
    QLOG_ERROR("### Not in app zone ###");
    exit(0);
  }
  _SetAppInfo(appId, execPath);
}

std::string PluginDotnet::GetDllPath() {
  QLOG_SCOPE();
  std::string path = device_paths::kPlatformLibraries;
  QLOG_DEBUG("GetDllPath: %s", path.c_str());
  return path;
}

std::string PluginDotnet::GetExtraDllPath() {
  QLOG_SCOPE();
  return {};
}

std::string PluginDotnet::GetTPA() {
  QLOG_SCOPE();
  return {};
}

void PluginDotnet::Finalize() { QLOG_SCOPE(); }

void PluginDotnet::SendAppInfoToHybridAOTManager() {
  QLOG_SCOPE();
  const std::string packageId = GetLaunchedAppPackageID();
  if (isServiceApp(packageId)) {
    QLOG_ERROR("%s is Service application, Cancel SendAppInfoToHybridAOTManager()",
               packageId.c_str());
    return;
  }
  const std::string directory = appLaunchedDirectory(packageId, g_appID);
  if (mkdir(directory.c_str(), kAppLaunchedMode) != 0) {
    QLOG_ERROR("Error creating directory!n");
    return;
  }
  QLOG_INFO("SendAppInfoToHybridAOTManager : %s", directory.c_str());
}
