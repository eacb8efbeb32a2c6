// The platform's services without work of their own: one package with the platform privilege, an
// application without metadata, and successful answers. Loaded before the platform library, so that
// only the plug-in's own part of its calls is measured.
#include <cstdio>

#include "device_names.h"
#include "platform/app_info.h"
#include "platform/package_info.h"
#include "platform/pkgmgr_info.h"
#include "platform/smack.h"
#include "platform/vconf.h"

namespace {

// The handles of the services are only compared with null.
char g_record;

}  // namespace

extern "C" {

int aul_app_get_pkgid_bypid(int /*pid*/, char* package_id, int length) {
  return std::snprintf(package_id, static_cast<size_t>(length), "org.velora.bench") > 0 ? 0 : -1;
}

int package_info_create(const char* /*package_id*/, package_info_h* handle) {
  *handle = reinterpret_cast<package_info_h>(&g_record);
  return 0;
}

int package_info_foreach_privilege_info(package_info_h /*handle*/,
                                        package_info_privilege_info_cb cb, void* user_data) {
  cb(QUILLON_PLATFORM_PRIVILEGE, user_data);
  return 0;
}

int app_info_create(const char* /*app_id*/, app_info_h* handle) {
  *handle = reinterpret_cast<app_info_h>(&g_record);
  return 0;
}

int app_info_foreach_metadata(app_info_h /*handle*/, app_info_metadata_cb /*cb*/,
                              void* /*user_data*/) {
  return 0;
}

int app_info_destroy(app_info_h /*handle*/) { return 0; }

int vconf_notify_key_changed(const char* /*key*/, vconf_callback_fn /*cb*/, void* /*user_data*/) {
  return 0;
}

int smack_setlabel(const char* /*path*/, const char* /*label*/, smack_label_type /*type*/) {
  return 0;
}

}  // extern "C"
