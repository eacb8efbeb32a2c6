/* The platform's package manager.
 *
 * Every function returns 0 on success and a negative value on failure. A string that a function
 * stores belongs to the handle and is valid as long as the handle.
 */
#pragma once

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* pkgmgrinfo_pkginfo_h;
typedef void* pkgmgrinfo_appinfo_h;

int pkgmgrinfo_pkginfo_get_pkginfo(const char* package_id, pkgmgrinfo_pkginfo_h* handle);
int pkgmgrinfo_pkginfo_get_usr_pkginfo(const char* package_id, uid_t uid,
                                       pkgmgrinfo_pkginfo_h* handle);
int pkgmgrinfo_pkginfo_get_mainappid(pkgmgrinfo_pkginfo_h handle, char** app_id);
int pkgmgrinfo_pkginfo_get_root_path(pkgmgrinfo_pkginfo_h handle, char** path);
int pkgmgrinfo_pkginfo_destroy_pkginfo(pkgmgrinfo_pkginfo_h handle);

int pkgmgrinfo_appinfo_get_appinfo(const char* app_id, pkgmgrinfo_appinfo_h* handle);
int pkgmgrinfo_appinfo_get_exec(pkgmgrinfo_appinfo_h handle, char** exec);
int pkgmgrinfo_appinfo_get_metadata_value(pkgmgrinfo_appinfo_h handle, const char* key,
                                          char** value);
int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle);

/* Stores the user that the installer works for. 0 means that packages are for all users. */
int pkgmgr_installer_info_get_target_uid(uid_t* uid);

/* Copies the package id of the application in process `pid` into `package_id`, a buffer of `length`
 * bytes. */
int aul_app_get_pkgid_bypid(int pid, char* package_id, int length);

#ifdef __cplusplus
}
#endif
