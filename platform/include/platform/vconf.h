/* The platform's key-value configuration store. Keys look like "db/dotnet/velora_api_path". */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* One key with its value, handed to a change callback. Opaque. */
typedef struct keynode_s keynode_t;

/* Called after a change of the key, on a thread of the store's own. `node` lives during the call.
 */
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/* The key's text, malloc'ed for the caller to free; null when the key is absent. */
char* vconf_get_str(const char* key);

/* Registers `cb` for changes of `key`. Returns 0 on success, negative on failure. */
int vconf_notify_key_changed(const char* key, vconf_callback_fn cb, void* user_data);

/* Takes the registration back; allowed from inside the callback. 0 on success, else negative. */
int vconf_ignore_key_changed(const char* key, vconf_callback_fn cb);

/* The integer that the notice carries; 0 where the value is no integer. */
int vconf_keynode_get_int(const keynode_t* node);

#ifdef __cplusplus
}
#endif
