#include "plugin/src/plugin-util/app_identity.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "device_paths.h"
#include "platform/pkgmgr_info.h"
#include "plugin/src/plugin-util/launch_boost.h"
#include "plugin/src/plugin-util/published_app_id.h"
#include "util/log/log.h"
#include "util/undestroyed.h"
#include "util/zq_utils/paths.h"

namespace {

constexpr char kProcessNamePrefix[] = "DN_";
// The prefix and these characters fill the 15 characters that the kernel keeps of a thread name.
constexpr std::size_t kProcessNameTail = 12;

constexpr std::size_t kPackageIdSize = 1024;

}  // namespace

std::string g_execPath;
Undestroyed<std::string> appIdStorage asm("g_appID_storage");
[[gnu::alias("g_appID_storage")]] extern std::string g_appID;
const std::string allowedExecPathPrefix[3] = {device_paths::kExecutablePrefixes[0],
                                              device_paths::kExecutablePrefixes[1],
                                              device_paths::kExecutablePrefixes[2]};

void _SetAppInfo(const std::string& appId, const std::string& execPath) {
  QLOG_SCOPE();
  QLOG_INFO("### plugin set app info called ###");
  QLOG_INFO("### App ID : %s ###", appId.c_str());
  QLOG_INFO("### execPath : %s ###", execPath.c_str());
  publishAppId(appId.c_str());  // for a fault during the assignment
  g_appID = appId;
  withdrawAppId();
  notifyLaunchBoost(appId, getpid());
  checkExecRunable(execPath);
  g_execPath = execPath;
  changeProcessName(appId);
}

void checkExecRunable(const std::string& execPath) {
  QLOG_SCOPE();
  const std::string absolute = getAbsolutePath(execPath);
  if (absolute.empty()) {
    QLOG_ERROR("### Use wrong execPath ###");
    exit(0);
  }
  if (!isAllowedExecPath(absolute)) {
    QLOG_ERROR("### Not allowed App Path ### = %s", absolute.c_str());
    exit(0);
  }
}

bool isAllowedExecPath(const std::string& path) {
  QLOG_SCOPE();
  for (const std::string& prefix : allowedExecPathPrefix) {
    if (startWith(path, prefix)) {
      return true;
    }
  }
  return false;
}

void changeProcessName(const std::string& appId) {
  QLOG_SCOPE();
  const std::size_t cut = appId.size() > kProcessNameTail ? appId.size() - kProcessNameTail : 0;
  const std::string name = kProcessNamePrefix + appId.substr(cut);
  if (prctl(PR_SET_NAME, name.c_str()) == 0) {
    QLOG_INFO("Process Name : %s", name.c_str());
  }
}

std::string GetLaunchedAppPackageID() {
  QLOG_SCOPE();
  std::array<char, kPackageIdSize> buffer{};
  aul_app_get_pkgid_bypid(getpid(), buffer.data(), kPackageIdSize);
  std::string packageId(buffer.data(), strnlen(buffer.data(), buffer.size()));
  QLOG_INFO("Package ID : %s", packageId.c_str());
  return packageId;
}

bool isServiceApp(const std::string& packageId) {
  QLOG_SCOPE();
  package_info_h handle = nullptr;
  const int result = package_info_create(packageId.c_str(), &handle);
  if (result != 0 || handle == nullptr) {
    QLOG_ERROR("package_info_create return error code : %d", result);
    return false;
  }
  bool service = false;
  package_info_foreach_app_from_package(handle, PACKAGE_INFO_APP_COMPONENT_TYPE_ALL,
                                        _package_info_app_cb, &service);
  return service;  // the handle is not released
}

bool _package_info_app_cb(package_info_app_component_type_e type, const char* appId,
                          void* userData) {
  QLOG_SCOPE();
  if (type == PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE) {
    QLOG_INFO("%s is Service application", appId != nullptr ? appId : "");
    if (userData != nullptr) {
      *static_cast<bool*>(userData) = true;
    }
  }
  return true;
}
