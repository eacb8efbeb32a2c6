/* The platform's key-value configuration store. Keys look like "db/dotnet/velora_api_path". */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* A key and its value, as passed to a change callback. Opaque. */
typedef struct keynode_s keynode_t;

/* Called after the key changed, in a thread of the store. `node` is valid during the call. */
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/* Returns the string value of the key, or null if the key does not exist. The caller must free(3)
 * it. */
char* vconf_get_str(const char* key);

/* Registers `cb` for changes of `key`. Returns 0 on success, negative on failure. */
int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data);

/* Removes the registration of `cb`. May be called from the callback. Returns 0 on success, negative
 * on failure. */
int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb);

/* Returns the integer value of the node, or 0 if the value is not an integer. */
int vconf_keynode_get_int(const keynode_t* node);

#ifdef __cplusplus
}
#endif
