// A libhostfxr.so that behaves as the text in the application's dependency file says: a host that a
// hostile package has made do so.
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

typedef void (*error_writer)(const char*);

int hostfxr_initialize_for_dotnet_command_line(int count, const char** arguments,
                                               const void* parameters, void** context);
int hostfxr_get_runtime_properties(const void* context, size_t* count, const char** names,
                                   const char** values);
error_writer hostfxr_set_error_writer(error_writer writer);

static char behaviour[64];
static char longList[2 << 20];

static void readBehaviour(const char* assembly) {
  char path[4096];
  const int length = (int)strlen(assembly) - (int)strlen(".dll");
  snprintf(path, sizeof path, "%.*s.deps.json", length, assembly);
  FILE* const file = fopen(path, "r");
  if (file != NULL) {
    behaviour[fread(behaviour, 1, sizeof behaviour - 1, file)] = '\0';
    fclose(file);
  }
}

int hostfxr_initialize_for_dotnet_command_line(int count, const char** arguments,
                                               const void* parameters, void** context) {
  (void)parameters;
  readBehaviour(arguments[count - 1]);
  if (strstr(behaviour, "hang") != NULL) {
    for (;;) {
      pause();
    }
  }
  if (strstr(behaviour, "crash") != NULL) {
    raise(SIGSEGV);
  }
  if (strstr(behaviour, "print") != NULL) {
    puts("printed by the host");
    fflush(stdout);
  }
  *context = behaviour;
  return 0;
}

// One list of two megabytes, or of one path that leads out of every folder.
int hostfxr_get_runtime_properties(const void* context, size_t* count, const char** names,
                                   const char** values) {
  (void)context;
  *count = 1;
  if (names == NULL) {
    return 0;
  }
  names[0] = "TRUSTED_PLATFORM_ASSEMBLIES";
  values[0] = "/opt/usr/../../etc/passwd.dll:relative/x.dll:/etc/shadow";
  if (strstr(behaviour, "flood") != NULL) {
    for (size_t i = 0; i + 9 < sizeof longList; i += 9) {
      memcpy(longList + i, "/a/b.dll:", 9);
    }
    values[0] = longList;
  }
  return 0;
}

error_writer hostfxr_set_error_writer(error_writer writer) {
  (void)writer;
  return NULL;
}
