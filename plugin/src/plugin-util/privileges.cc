#include "plugin/src/plugin-util/privileges.h"

#include <cstdlib>

#include "device_names.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "util/log/log.h"
#include "util/privilege_checker/privilege_checker.h"

bool HasPlatformPrivilege() {
  QLOG_SCOPE();
  QLOG_INFO("### HasPlatformPrivilege() called ###");
  return HasPrivilege(QUILLON_PLATFORM_PRIVILEGE, GetLaunchedAppPackageID());
}

bool HasAppdebugPrivilege() {
  QLOG_SCOPE();
  QLOG_INFO("### HasAppdebugPrivilege() called ###");
  return HasPrivilege(QUILLON_APPDEBUG_PRIVILEGE, GetLaunchedAppPackageID());
}

void checkAppHasPlatformPrivilege() {
  QLOG_SCOPE();
  if (!HasPlatformPrivilege()) {
    QLOG_ERROR("### This App doesn't have platform privilege ###");
    exit(0);
  }
}
