#include "plugin/src/plugin-util/privileges.h"

#include <cstdlib>

#include "plugin/src/plugin-util/app_identity.h"
#include "util/log/log.h"
#include "util/privilege_checker/privilege_checker.h"

namespace {

constexpr char kPlatformPrivilege[] =
    QUILLON_PRIVILEGE_NAMESPACE "/privilege/internal/default/platform";
constexpr char kAppdebugPrivilege[] =
    QUILLON_PRIVILEGE_NAMESPACE "/privilege/internal/appdebugging";

}  // namespace

bool HasPlatformPrivilege() {
  QLOG_SCOPE();
  QLOG_INFO("### HasPlatformPrivilege() called ###");
  return HasPrivilege(kPlatformPrivilege, GetLaunchedAppPackageID());
}

bool HasAppdebugPrivilege() {
  QLOG_SCOPE();
  QLOG_INFO("### HasAppdebugPrivilege() called ###");
  return HasPrivilege(kAppdebugPrivilege, GetLaunchedAppPackageID());
}

void checkAppHasPlatformPrivilege() {
  QLOG_SCOPE();
  if (!HasPlatformPrivilege()) {
    QLOG_ERROR("### This App doesn't have platform privilege ###");
    exit(0);
  }
}
