/* The platform's package-information service.
 *
 * Every function returns 0 on success and a negative value on failure.
 */
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct package_info_s* package_info_h;

typedef enum {
  PACKAGE_INFO_APP_COMPONENT_TYPE_ALL = 0,
  PACKAGE_INFO_APP_COMPONENT_TYPE_UI = 1,
  PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE = 2,
} package_info_app_component_type_e;

/* Called for each application of the package. Returns false to stop. `app_id` is valid during the
 * call. */
typedef bool (*package_info_app_cb)(package_info_app_component_type_e type, const char* app_id,
                                    void* user_data);

/* Called for each declared privilege. Returns false to stop. `privilege` is valid during the call.
 */
typedef bool (*package_info_privilege_info_cb)(const char* privilege, void* user_data);

/* Opens the record of `package_id`. Fails if the id is empty or unknown. The caller must destroy
 * the handle. */
int package_info_create(const char* package_id, package_info_h* handle);
int package_info_destroy(package_info_h handle);

int package_info_foreach_app_from_package(package_info_h handle,
                                          package_info_app_component_type_e type,
                                          package_info_app_cb cb, void* user_data);
int package_info_foreach_privilege_info(package_info_h handle, package_info_privilege_info_cb cb,
                                        void* user_data);

#ifdef __cplusplus
}
#endif
