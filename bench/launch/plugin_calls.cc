// Times loading the plug-in and each of its calls in a launch without output capture, without a
// trace. Prints a name and microseconds for each. Does not run the application.
//
// usage: plugin_calls PLUGIN PROPERTIES PACKAGE APPID ASSEMBLY, inside a device root
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "quillon/host/membarrier.h"
#include "quillon/host/plugin/boost_listener.h"
#include "quillon/host/plugin/plugin_library.h"
#include "quillon/host/runtime/runtime.h"
#include "workstation/config_store.h"
#include "workstation/packages.h"

namespace {

using namespace quillon;
using namespace quillon::host;

template <typename Function, typename... Arguments>
void timed(const char* name, Function* function, Arguments... arguments) {
  const auto start = std::chrono::steady_clock::now();
  function(arguments...);
  const std::chrono::duration<double, std::micro> taken = std::chrono::steady_clock::now() - start;
  std::printf("%s %.1f\n", name, taken.count());
}

RuntimeProperties readProperties(const char* file) {
  RuntimeProperties properties;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    const size_t end = line.find('=');
    properties.emplace_back(line.substr(0, end), line.substr(end + 1));
  }
  return properties;
}

void timeLists(const PluginLibrary& plugin) {
  timed("plugin_initialize", plugin.initialize, "inhouse");
  timed("plugin_get_tpa", plugin.getTpa);
  timed("plugin_get_dll_path", plugin.getDllPath);
  timed("plugin_get_native_dll_searching_path", plugin.getNativeDllSearchingPath);
  timed("plugin_get_extra_dll_path", plugin.getExtraDllPath);
}

void timeApplication(const PluginLibrary& plugin, const Runtime& runtime, const char* appId,
                     const char* assembly) {
  timed("plugin_set_coreclr_info", plugin.setCoreclrInfo, runtime.host(), runtime.domain(),
        runtime.createDelegate());
  const BoostListener listener;
  timed("plugin_set_app_info", plugin.setAppInfo, appId, assembly);
  timed("plugin_before_execute", plugin.beforeExecute);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 6) {
    return 100;
  }
  registerMembarrier();
  auto runtime = Runtime::load("/usr/share/dotnet.velora/netcoreapp");
  const auto start = std::chrono::steady_clock::now();
  const auto plugin = loadPlugin(argv[1]);
  const std::chrono::duration<double, std::micro> loading =
      std::chrono::steady_clock::now() - start;
  std::printf("loading %.1f\n", loading.count());
  if (!runtime || !plugin || !workstation::registerProcess(getpid(), argv[3])) {
    return 101;
  }
  // Like the launcher, which has looked up the application's package before.
  if (const auto package = workstation::findPackageOfApplication(argv[4]); !package) {
    return 101;
  }
  timeLists(*plugin);
  // As the launcher does while the runtime's libraries load.
  workstation::startConfigThread();
  if (!runtime->start(argv[0], argv[4], readProperties(argv[2]))) {
    return 102;
  }
  timeApplication(*plugin, *runtime, argv[4], argv[5]);
  timed("plugin_finalize", plugin->finalize);
  runtime->shutDown();
  return 0;
}
