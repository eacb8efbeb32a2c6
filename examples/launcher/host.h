/* What a launcher does besides calling the plug-in: it finds the application and drives the .NET
 * runtime. launcher.c and launcher.cc share it. */
#pragma once

#include <stdbool.h>

#include "quillon_tv_plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

struct application {
  const char* id;
  char* package;
  char* assembly; /* path of the assembly to run */
};

/* Finds an installed application. Returns false if there is none with this id. The strings live as
 * long as the process. */
bool find_application(const char* id, struct application* application);

/* The results of the plug-in's four list functions. */
struct lists {
  const char* tpa; /* null with the type "dotnet" */
  const char* dll_path;
  const char* native_path;
  const char* extra_path;
};

/* The runtime's functions, as coreclrhost.h of the .NET runtime declares them. */
struct runtime {
  int (*initialize)(const char* program, const char* domain_name, int count, const char** names,
                    const char** values, void** host, unsigned int* domain);
  int (*execute)(void* host, unsigned int domain, int count, const char** arguments,
                 const char* assembly, unsigned int* status);
  int (*shut_down)(void* host, unsigned int domain, int* status);
  coreclr_create_delegate_ptr create_delegate;
  void* host;
  unsigned int domain;
};

/* Loads the device's runtime and starts it with the plug-in's lists. Returns a negative status on
 * failure. If the runtime cannot be loaded, prints the reason to standard error and returns -1. */
int start_runtime(struct runtime* runtime, const struct application* application,
                  const struct lists* lists);

/* Runs the application until its Main has returned. Returns a negative status on failure. */
int run_application(const struct runtime* runtime, const struct application* application, int count,
                    char** arguments);

/* Ends the runtime, and waits until the plug-in has logged the application's output. Returns the
 * exit status of the application. */
int stop_runtime(const struct runtime* runtime);

#ifdef __cplusplus
}
#endif
