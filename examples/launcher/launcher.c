/* A complete launcher: runs one installed application of a device in its own process.
 *
 *   launcher-c TYPE APPLICATION [ARGUMENT...]
 *
 * TYPE is "inhouse", "inhouseapitest", "normal" or "dotnet". Exits as the application does, with 1
 * if the launch failed, and with 0 if the plug-in refused the application. This program is linked
 * with the plug-in, launcher-c-static with its archive. launcher.cc loads the plug-in, and catches
 * its C++ exceptions, which end this program. */
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "host.h"
#include "workstation/process_registration.h" /* a device registers processes by itself */

/* The plug-in replaces descriptor 2, so the launcher keeps a duplicate for its own messages. */
static int terminal = -1;
static bool in_plugin = false;

/* The plug-in refuses an application by calling exit(0). */
static void explain_refusal(void) {
  if (in_plugin) {
    dprintf(terminal, "launcher: the plug-in refused the application; the log says why\n");
  }
}

static int launch(const char* type, const struct application* application, int count,
                  char** arguments) {
  in_plugin = true;
  plugin_initialize(type);
  in_plugin = false;
  const struct lists lists = {plugin_get_tpa(), plugin_get_dll_path(),
                              plugin_get_native_dll_searching_path(), plugin_get_extra_dll_path()};
  struct runtime runtime;
  int status = start_runtime(&runtime, application, &lists);
  if (status >= 0) {
    plugin_set_coreclr_info(runtime.host, runtime.domain, runtime.create_delegate);
    in_plugin = true;
    plugin_set_app_info(application->id, application->assembly);
    in_plugin = false;
    plugin_has_log_control();
    plugin_before_execute();
    status = run_application(&runtime, application, count, arguments);
    plugin_finalize();
  }
  if (status < 0) {
    dprintf(terminal, "launcher: the runtime cannot run the application (0x%08x)\n", status);
    return 1;
  }
  return stop_runtime(&runtime);
}

int main(int count, char** arguments) {
  terminal = dup(STDERR_FILENO);
  struct application application;
  if (count < 3) {
    dprintf(terminal, "usage: launcher-c TYPE APPLICATION [ARGUMENT...]\n");
    return 1;
  }
  if (!find_application(arguments[2], &application)) {
    dprintf(terminal, "launcher: no application '%s' is installed\n", arguments[2]);
    return 1;
  }
  if (quillon_register_process(getpid(), application.package) != 0) {
    dprintf(terminal, "launcher: cannot register this process\n");
    return 1;
  }
  setenv("QUILLON_APP_ID", application.id, 1); /* for the application */
  atexit(explain_refusal);
  return launch(arguments[1], &application, count - 3, arguments + 3);
}
