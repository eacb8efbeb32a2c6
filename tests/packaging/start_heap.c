/* Prints the bytes of heap that a launcher spends on the plug-in before it asks for anything: for
 * loading it and for plugin_initialize(). The libraries that the plug-in needs are loaded before.
 *
 *   start-heap PLUGIN
 */
#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: start-heap PLUGIN\n");
    return 2;
  }
  const size_t before = mallinfo2().uordblks;
  void* plugin = dlopen(argv[1], RTLD_NOW);
  void (*initialize)(const char*) = NULL;
  if (plugin != NULL) {
    *(void**)&initialize = dlsym(plugin, "plugin_initialize");
  }
  if (initialize == NULL) {
    fprintf(stderr, "start-heap: %s\n", dlerror());
    return 1;
  }
  initialize("dotnet");
  printf("%zu\n", mallinfo2().uordblks - before);
  return 0;
}
