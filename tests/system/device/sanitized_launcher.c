/* A launcher that is compiled with the address sanitizer: sanitized_launcher PLUGIN
 * check_signature=MOUNT. Prints the result as plugin_driver.cc does. */
#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

/* Called by the sanitizer. Memory that the plug-in keeps until the end is no leak. */
const char* __asan_default_options(void);
const char* __asan_default_options(void) { return "detect_leaks=0"; }

int main(int count, char** arguments) {
  void* plugin = count == 3 ? dlopen(arguments[1], RTLD_NOW) : NULL;
  bool (*check_signature)(const char*) = NULL;
  if (plugin != NULL) {
    *(void**)&check_signature = dlsym(plugin, "check_signature");
  }
  if (check_signature == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 3;
  }
  const char* mount = strchr(arguments[2], '=') + 1;
  printf("{\"step\":\"check_signature\",\"result\":%s}\n",
         check_signature(mount) ? "true" : "false");
  return 0;
}
