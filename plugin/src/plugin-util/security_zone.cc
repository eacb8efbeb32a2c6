#include "plugin/src/plugin-util/security_zone.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

#include "device_names.h"
#include "device_paths.h"
#include "plugin/src/plugin-util/privileges.h"
#include "util/log/log.h"

decltype(&zone_get_context) _get_zone = nullptr;
decltype(&zone_release_context) _release_Zone = nullptr;
decltype(&zone_attach_process) _attach_Zone = nullptr;
decltype(&zone_enable_debug_mode) _enable_debug = nullptr;

namespace {

template <typename Function>
void look(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
}

// Returns true if the library has all four functions.
bool lookUpFunctions(void* library) {
  look(library, "zone_get_context", _get_zone);
  look(library, "zone_release_context", _release_Zone);
  look(library, "zone_attach_process", _attach_Zone);
  look(library, "zone_enable_debug_mode", _enable_debug);
  return _get_zone != nullptr && _release_Zone != nullptr && _attach_Zone != nullptr &&
         _enable_debug != nullptr;
}

void release(void* library, void* context) {
  _release_Zone(&context);
  dlclose(library);
}

// Ends with status 0, so that the launcher does not treat a refused launch as a crash.
[[noreturn]] void endLaunch(void* library) {
  dlclose(library);
  exit(0);
}

[[noreturn]] void endLaunch(void* library, void* context) {
  release(library, context);
  exit(0);
}

}  // namespace

Zone GetZone() {
  QLOG_SCOPE();
  if (access(device_paths::kAppZoneRoot, F_OK) == 0) {
    QLOG_DEBUG("Host");
    return Host;
  }
  QLOG_DEBUG("AppZone");
  return AppZone;
}

bool isInAppZone() {
  QLOG_SCOPE();
  return GetZone() == AppZone;
}

void enterSecureZone() {
  QLOG_SCOPE();
  QLOG_INFO("### enterSecureZone() called ###");
  if (GetZone() == AppZone) {
    QLOG_INFO("### Already in App Zone ###");
    return;
  }
  QLOG_INFO("### Attach to App Zone ###");
  AttachZone(device_names::kAppZone);
}

void AttachZone(const std::string& name) {
  QLOG_SCOPE();
  QLOG_INFO("Start AttachZone");
  void* library = dlopen(ZONE_LIBRARY_PATH, RTLD_LAZY);
  if (library == nullptr) {
    return;
  }
  if (!lookUpFunctions(library)) {
    QLOG_ERROR("Can't find Attach Zone APIs");
    endLaunch(library);
  }
  QLOG_INFO("_get_zone : %p, _release_Zone : %p, _attach_Zone : %p",
            reinterpret_cast<void*>(_get_zone), reinterpret_cast<void*>(_release_Zone),
            reinterpret_cast<void*>(_attach_Zone));
  void* context = _get_zone(name.c_str());
  if (context == nullptr) {
    QLOG_ERROR("Zone Context is NULL!");
    endLaunch(library);
  }
  if (HasAppdebugPrivilege() && _enable_debug(context) < 0) {
    QLOG_ERROR("failed to set debug mode");
    endLaunch(library, context);
  }
  QLOG_INFO("Try to Attach %s", name.c_str());
  if (_attach_Zone(context) < 0) {
    QLOG_ERROR("failed to Attach Zone");
    endLaunch(library, context);
  }
  release(library, context);
}
