/* A complete launcher: runs one installed application of a device in its own process.
 *
 *   launcher-c TYPE APPLICATION [ARGUMENT...]
 *
 * TYPE is "inhouse", "inhouseapitest", "normal" or "dotnet". Exits as the application does, with 1
 * if the launch failed, and with 0 if the plug-in refused the application.
 *
 * This program is linked with the plug-in. launcher.cc loads it with dlopen(3), and catches the C++
 * exceptions of plugin_get_extra_dll_path and plugin_set_app_info, which end this program.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <libgen.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/app_info.h"
#include "platform/pkgmgr_info.h"
#include "quillon_tv_plugin.h"
#include "workstation/process_registration.h" /* a device registers processes by itself */

#define FRAMEWORK "/usr/share/dotnet.velora/netcoreapp"

/* The hosting interface of the runtime; see coreclrhost.h of the .NET runtime. */
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

struct application {
  const char* id;
  char* package;
  char* assembly;
};

/* The plug-in replaces descriptor 2, so the launcher keeps a duplicate for its own messages. */
static int terminal = -1;
static bool in_plugin = false;

static int failed(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  dprintf(terminal, "launcher: ");
  vdprintf(terminal, format, arguments);
  dprintf(terminal, "\n");
  va_end(arguments);
  return 1;
}

/* The plug-in refuses an application by calling exit(0). */
static void explain_refusal(void) {
  if (in_plugin) {
    failed("the plug-in refused the application; the platform log says why");
  }
}

static bool find_application(struct application* application) {
  pkgmgrinfo_appinfo_h record = NULL;
  if (pkgmgrinfo_appinfo_get_appinfo(application->id, &record) != 0) {
    return false;
  }
  char* path = NULL; /* belongs to the record */
  if (pkgmgrinfo_appinfo_get_exec(record, &path) == 0) {
    application->assembly = strdup(path);
  }
  pkgmgrinfo_appinfo_destroy_appinfo(record);
  app_info_h info = NULL;
  if (app_info_create(application->id, &info) != 0) {
    return false;
  }
  if (app_info_get_package(info, &application->package) != 0) {
    application->package = NULL;
  }
  app_info_destroy(info);
  return application->assembly != NULL && application->package != NULL;
}

/* Lists of the plug-in may begin or end with ":". The runtime refuses a list with an empty entry.
 * The result is allocated with malloc(3), as those of the functions below. */
static char* join(const char* first, const char* second) {
  char* all = NULL;
  char* joined = NULL;
  size_t size = 0;
  if (asprintf(&all, "%s:%s", first, second) < 0) {
    abort();
  }
  FILE* out = open_memstream(&joined, &size);
  char* rest = NULL;
  for (char* path = strtok_r(all, ":", &rest); path != NULL; path = strtok_r(NULL, ":", &rest)) {
    fprintf(out, "%s%s", ftell(out) == 0 ? "" : ":", path);
  }
  fclose(out);
  free(all);
  return joined;
}

static char* with_slash(const char* folder) {
  char* text = NULL;
  if (asprintf(&text, "%s/", folder) < 0) {
    abort();
  }
  return text;
}

static bool ends_with(const char* text, const char* end) {
  const size_t length = strlen(text);
  return length >= strlen(end) && strcasecmp(text + length - strlen(end), end) == 0;
}

static bool is_assembly(const char* path) {
  return ends_with(path, ".dll") || ends_with(path, ".exe");
}

/* Whether a path in `list` has the file name of `path`, ignoring case. */
static bool has_name(const char* list, const char* path) {
  const char* name = strrchr(path, '/');
  const size_t length = strlen(name);
  for (const char* at = strcasestr(list, name); at != NULL; at = strcasestr(at + 1, name)) {
    if (at[length] == '\0' || at[length] == ':') {
      return true;
    }
  }
  return false;
}

/* The runtime takes assemblies only, and one path for each name. With the type "inhouseapitest" the
 * plug-in's list can contain a name twice; the first path is meant. */
static char* trusted_assemblies(const char* list) {
  char* copy = strdup(list);
  char* trusted = calloc(1, strlen(list) + 1);
  char* end = trusted;
  char* rest = NULL;
  for (char* path = strtok_r(copy, ":", &rest); path != NULL; path = strtok_r(NULL, ":", &rest)) {
    if (is_assembly(path) && !has_name(trusted, path)) {
      end = stpcpy(end == trusted ? end : stpcpy(end, ":"), path);
    }
  }
  free(copy);
  return trusted;
}

/* For the type "dotnet", with which the plug-in returns no list. */
static char* framework_assemblies(void) {
  char* list = NULL;
  size_t size = 0;
  FILE* out = open_memstream(&list, &size);
  DIR* framework = opendir(FRAMEWORK);
  for (struct dirent* entry; framework != NULL && (entry = readdir(framework)) != NULL;) {
    fprintf(out, "%s/%s:", FRAMEWORK, entry->d_name);
  }
  if (framework != NULL) {
    closedir(framework);
  }
  fclose(out);
  return list;
}

static bool find(void* library, const char* name, void* function) {
  *(void**)function = dlsym(library, name);
  return *(void**)function != NULL;
}

static bool load_runtime(struct runtime* runtime) {
  void* library = dlopen(FRAMEWORK "/libcoreclr.so", RTLD_NOW | RTLD_LOCAL);
  return library != NULL && find(library, "coreclr_initialize", &runtime->initialize) &&
         find(library, "coreclr_execute_assembly", &runtime->execute) &&
         find(library, "coreclr_shutdown_2", &runtime->shut_down) &&
         find(library, "coreclr_create_delegate", &runtime->create_delegate);
}

/* Calls the four list functions and starts the runtime with their results. The lists live as long
 * as the process. */
static int start_runtime(struct runtime* runtime, const struct application* application) {
  const char* folder = dirname(strdup(application->assembly));
  const char* tpa = plugin_get_tpa();
  const char* dll_path = plugin_get_dll_path();
  const char* extra_path = plugin_get_extra_dll_path();
  const char* native_path = plugin_get_native_dll_searching_path();
  const char* properties[][2] = {
      {"TRUSTED_PLATFORM_ASSEMBLIES",
       trusted_assemblies(tpa != NULL ? tpa : framework_assemblies())},
      {"APP_PATHS", join(folder, join(dll_path, extra_path))},
      {"NATIVE_DLL_SEARCH_DIRECTORIES", join(native_path, join(folder, FRAMEWORK))},
      {"PLATFORM_RESOURCE_ROOTS", join(FRAMEWORK, join(dll_path, extra_path))},
      {"APP_CONTEXT_BASE_DIRECTORY", with_slash(folder)},
  };
  enum { count = sizeof(properties) / sizeof(properties[0]) };
  const char* names[count];
  const char* values[count];
  for (int i = 0; i < count; ++i) {
    names[i] = properties[i][0];
    values[i] = properties[i][1];
  }
  return runtime->initialize("/proc/self/exe", "launcher", count, names, values, &runtime->host,
                             &runtime->domain);
}

/* Waits until the plug-in has read what the application has written, for a second at most, and a
 * little longer until it has logged it. */
static void drain_output(void) {
  fflush(NULL);
  for (int round = 0; round < 100; ++round) {
    int out = 0;
    int error = 0;
    ioctl(STDOUT_FILENO, FIONREAD, &out);
    ioctl(STDERR_FILENO, FIONREAD, &error);
    if (out == 0 && error == 0) {
      break;
    }
    usleep(10000);
  }
  usleep(50000);
}

/* Returns the exit status of the application. */
static int run(struct runtime* runtime, const struct application* application, int count,
               char** arguments) {
  plugin_set_coreclr_info(runtime->host, runtime->domain, runtime->create_delegate);
  in_plugin = true;
  plugin_set_app_info(application->id, application->assembly);
  in_plugin = false;
  plugin_has_log_control();
  plugin_before_execute();
  unsigned int status = 0;
  const int result = runtime->execute(runtime->host, runtime->domain, count,
                                      (const char**)arguments, application->assembly, &status);
  plugin_finalize();
  int latched = 1;
  runtime->shut_down(runtime->host, runtime->domain, &latched);
  drain_output();
  return result < 0 ? failed("the runtime cannot run '%s' (0x%08x)", application->assembly, result)
                    : latched;
}

int main(int count, char** arguments) {
  terminal = dup(STDERR_FILENO);
  if (count < 3) {
    return failed("usage: launcher-c TYPE APPLICATION [ARGUMENT...]");
  }
  struct application application = {.id = arguments[2]};
  if (!find_application(&application)) {
    return failed("no application '%s' is installed", application.id);
  }
  if (quillon_register_process(getpid(), application.package) != 0) {
    return failed("cannot register this process");
  }
  setenv("QUILLON_APP_ID", application.id, 1); /* for the application */
  atexit(explain_refusal);
  in_plugin = true;
  plugin_initialize(arguments[1]);
  in_plugin = false;
  struct runtime runtime = {0};
  if (!load_runtime(&runtime)) {
    return failed("%s", dlerror());
  }
  const int status = start_runtime(&runtime, &application);
  if (status < 0) {
    return failed("the runtime does not start (0x%08x)", status);
  }
  return run(&runtime, &application, count - 3, arguments + 3);
}
