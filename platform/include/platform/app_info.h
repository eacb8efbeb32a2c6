/* The platform's application-information service.
 *
 * Every function returns 0 on success and a negative value on failure. The caller of a create
 * function owns the handle and must destroy it.
 */
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct app_info_s* app_info_h;
typedef struct app_info_metadata_filter_s* app_info_metadata_filter_h;

/* Called for each metadata entry. Returns false to stop. The strings are valid during the call. */
typedef bool (*app_info_metadata_cb)(const char* key, const char* value, void* user_data);

/* Called for each matching application. Returns false to stop. The service owns `app`, which is
 * valid during the call. */
typedef bool (*app_info_filter_cb)(app_info_h app, void* user_data);

int app_info_create(const char* app_id, app_info_h* handle);
int app_info_destroy(app_info_h handle);

/* Stores the application's package id in `*package`. The caller must free(3) it. */
int app_info_get_package(app_info_h handle, char** package);

int app_info_foreach_metadata(app_info_h handle, app_info_metadata_cb cb, void* user_data);

int app_info_metadata_filter_create(app_info_metadata_filter_h* handle);
int app_info_metadata_filter_destroy(app_info_metadata_filter_h handle);

/* Adds a condition. An application matches if all conditions are true. A null `value` matches any
 * value of `key`. */
int app_info_metadata_filter_add(app_info_metadata_filter_h handle, const char* key,
                                 const char* value);

int app_info_metadata_filter_foreach(app_info_metadata_filter_h handle, app_info_filter_cb cb,
                                     void* user_data);

#ifdef __cplusplus
}
#endif
