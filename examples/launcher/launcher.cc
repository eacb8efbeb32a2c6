// A complete launcher: runs one installed application of a device in its own process.
//
//   launcher-cxx PLUGIN TYPE APPLICATION [ARGUMENT...]
//
// PLUGIN is the path of libquillon-tv-plugin.so, TYPE is "inhouse", "inhouseapitest", "normal" or
// "dotnet". Exits as the application does, with 1 if the launch failed, and with 0 if the plug-in
// refused the application. This program loads the plug-in. launcher.c is linked with it.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "host.h"
#include "workstation/process_registration.h"  // a device registers processes by itself

namespace {

// The plug-in replaces descriptor 2, so the launcher keeps a duplicate for its own messages.
const int terminal = dup(STDERR_FILENO);
bool inPlugin = false;

// The plug-in refuses an application by calling exit(0).
void explainRefusal() {
  if (inPlugin) {
    dprintf(terminal, "launcher: the plug-in refused the application; the log says why\n");
  }
}

// Looks up a function of the plug-in. The plug-in is never unloaded.
template <typename Function>
Function* find(void* plugin, const char* name) {
  void* const symbol = plugin != nullptr ? dlsym(plugin, name) : nullptr;
  if (symbol == nullptr) {
    throw std::runtime_error(dlerror());
  }
  return reinterpret_cast<Function*>(symbol);
}
#define CALL(name) find<decltype(name)>(plugin, #name)

int launch(void* plugin, const char* type, const application& app, int count, char** arguments) {
  inPlugin = true;
  CALL(plugin_initialize)(type);
  inPlugin = false;
  const lists lists{CALL(plugin_get_tpa)(), CALL(plugin_get_dll_path)(),
                    CALL(plugin_get_native_dll_searching_path)(),
                    CALL(plugin_get_extra_dll_path)()};
  runtime runtime{};
  if (start_runtime(&runtime, &app, &lists) < 0) {
    throw std::runtime_error("the runtime does not start");
  }
  CALL(plugin_set_coreclr_info)(runtime.host, runtime.domain, runtime.create_delegate);
  inPlugin = true;
  CALL(plugin_set_app_info)(app.id, app.assembly);
  inPlugin = false;
  CALL(plugin_has_log_control)();
  CALL(plugin_before_execute)();
  if (run_application(&runtime, &app, count, arguments) < 0) {
    throw std::runtime_error("the runtime cannot run the application");
  }
  CALL(plugin_finalize)();
  return stop_runtime(&runtime);
}

int prepareAndLaunch(int count, char** arguments) {
  application app{};
  if (!find_application(arguments[3], &app)) {
    throw std::runtime_error("no application '" + std::string(arguments[3]) + "' is installed");
  }
  if (quillon_register_process(getpid(), app.package) != 0) {
    throw std::runtime_error("cannot register this process");
  }
  setenv("QUILLON_APP_ID", app.id, 1);  // for the application
  std::atexit(explainRefusal);
  return launch(dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL), arguments[2], app, count - 4,
                arguments + 4);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) {
    dprintf(terminal, "usage: launcher-cxx PLUGIN TYPE APPLICATION [ARGUMENT...]\n");
    return 1;
  }
  try {
    return prepareAndLaunch(count, arguments);
  } catch (const std::exception& failure) {  // also what the plug-in's functions throw
    inPlugin = false;
    dprintf(terminal, "launcher: %s\n", failure.what());
    return 1;
  }
}
