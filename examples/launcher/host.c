#define _GNU_SOURCE
#include "host.h"

#include <dirent.h>
#include <dlfcn.h>
#include <libgen.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/app_info.h"
#include "platform/pkgmgr_info.h"

#define FRAMEWORK "/usr/share/dotnet.velora/netcoreapp"

bool find_application(const char* id, struct application* application) {
  *application = (struct application){.id = id};
  pkgmgrinfo_appinfo_h record = NULL;
  if (pkgmgrinfo_appinfo_get_appinfo(id, &record) != 0) {
    return false;
  }
  char* path = NULL; /* belongs to the record */
  if (pkgmgrinfo_appinfo_get_exec(record, &path) == 0) {
    application->assembly = strdup(path);
  }
  pkgmgrinfo_appinfo_destroy_appinfo(record);
  app_info_h info = NULL;
  if (app_info_create(id, &info) != 0) {
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

int start_runtime(struct runtime* runtime, const struct application* application,
                  const struct lists* lists) {
  if (!load_runtime(runtime)) {
    fprintf(stderr, "launcher: %s\n", dlerror());
    return -1;
  }
  const char* folder = dirname(strdup(application->assembly));
  const char* folders = join(lists->dll_path, lists->extra_path);
  const char* properties[][2] = {
      {"TRUSTED_PLATFORM_ASSEMBLIES",
       trusted_assemblies(lists->tpa != NULL ? lists->tpa : framework_assemblies())},
      {"APP_PATHS", join(folder, folders)},
      {"NATIVE_DLL_SEARCH_DIRECTORIES", join(lists->native_path, join(folder, FRAMEWORK))},
      {"PLATFORM_RESOURCE_ROOTS", join(FRAMEWORK, folders)},
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

int run_application(const struct runtime* runtime, const struct application* application, int count,
                    char** arguments) {
  unsigned int status = 0;
  return runtime->execute(runtime->host, runtime->domain, count, (const char**)arguments,
                          application->assembly, &status);
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

int stop_runtime(const struct runtime* runtime) {
  int latched = 1;
  runtime->shut_down(runtime->host, runtime->domain, &latched);
  drain_output();
  return latched;
}
