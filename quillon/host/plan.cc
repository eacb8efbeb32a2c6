#include "quillon/host/plan.h"

#include <algorithm>

#include "device_paths.h"

namespace quillon::host {

std::vector<std::string> callsOf(const LaunchPlan& plan) {
  const LaunchTarget& target = plan.target;
  std::vector<std::string> calls = {"plugin_initialize(\"" + target.type + "\")",
                                    "plugin_get_tpa()",
                                    "plugin_get_dll_path()",
                                    "plugin_get_native_dll_searching_path()",
                                    "plugin_get_extra_dll_path()",
                                    "coreclr_initialize()",
                                    "plugin_set_coreclr_info()"};
  if (plan.options.preload) calls.push_back("plugin_preload()");
  calls.push_back("plugin_set_app_info(\"" + target.application.id + "\", \"" + target.exec +
                  "\")");
  if (!plan.options.raw) calls.push_back("plugin_has_log_control()");
  calls.insert(calls.end(),
               {"plugin_before_execute()", "coreclr_execute_assembly(\"" + target.assembly + "\")",
                "plugin_finalize()", "coreclr_shutdown_2()"});
  return calls;
}

std::vector<std::string> cobaDirectoriesOf(const PluginLists& lists) {
  const std::string suffix = device_paths::kCobaOfPackage;
  std::vector<std::string> directories = splitList(lists.dllPath);
  std::erase_if(directories, [&](const std::string& directory) {
    return directory.size() < suffix.size() ||
           directory.compare(directory.size() - suffix.size(), suffix.size(), suffix) != 0;
  });
  return directories;
}

}  // namespace quillon::host
