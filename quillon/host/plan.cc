#include "quillon/host/plan.h"

#include "device_paths.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/host/plugin/launch_calls.h"

namespace quillon::host {
namespace {

std::string argumentsOf(LaunchCall call, const LaunchTarget& target) {
  switch (call) {
    case LaunchCall::kInitialize:
      return "\"" + target.type + "\"";
    case LaunchCall::kSetAppInfo:
      return "\"" + target.application.id + "\", \"" + target.exec + "\"";
    case LaunchCall::kExecuteAssembly:
      return "\"" + target.assembly + "\"";
    default:
      return {};
  }
}

}  // namespace

std::vector<std::string> formatCalls(const LaunchPlan& plan) {
  std::vector<std::string> calls;
  for (const LaunchCall call : kDirectLaunchCalls) {
    if (call == LaunchCall::kPreload && !plan.options.preload) {
      continue;
    }
    if (call == LaunchCall::kHasLogControl && plan.options.raw) {
      continue;
    }
    calls.push_back(std::string(nameOf(call)) + "(" + argumentsOf(call, plan.target) + ")");
  }
  return calls;
}

std::vector<std::string> cobaDirectoriesOf(const PluginLists& lists) {
  std::vector<std::string> directories = splitList(lists.dllPath);
  std::erase_if(directories, [](const std::string& directory) {
    return !directory.ends_with(device_paths::kCobaOfPackage);
  });
  return directories;
}

}  // namespace quillon::host
