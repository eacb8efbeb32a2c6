/* The smallest launcher: loads the installed plug-in and asks it one question. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "quillon_tv_plugin.h"

int main(void) {
  void* plugin = dlopen(PLUGIN_FILE, RTLD_NOW);
  if (plugin == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  char* (*native_path)(void) = NULL;
  *(void**)&native_path = dlsym(plugin, "plugin_get_native_dll_searching_path");
  if (native_path == NULL || strcmp(native_path(), "") != 0) {
    return 1;
  }
  int (*direct_call)(void) = NULL;
  *(void**)&direct_call = dlsym(plugin, "is_coba_direct_call_mode");
  return direct_call == NULL || direct_call() != 0;
}
