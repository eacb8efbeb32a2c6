// A plug-in like the built one, except that it leaves the environment as it was.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

static const char* const kVariables[] = {
    "DOTNET_APP", "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER", "SSL_CERT_FILE"};
enum { kCount = sizeof kVariables / sizeof kVariables[0] };

void plugin_initialize(const char* type) {
  char* before[kCount];
  for (int i = 0; i < kCount; ++i) {
    const char* const value = getenv(kVariables[i]);
    before[i] = value != NULL ? strdup(value) : NULL;
  }
  void (*initialize)(const char*) = NULL;
  *(void**)&initialize = dlsym(RTLD_NEXT, "plugin_initialize");
  initialize(type);
  for (int i = 0; i < kCount; ++i) {
    if (before[i] != NULL) {
      setenv(kVariables[i], before[i], 1);
      free(before[i]);
    } else {
      unsetenv(kVariables[i]);
    }
  }
}
