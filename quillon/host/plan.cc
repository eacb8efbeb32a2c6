#include "quillon/host/plan.h"

#include "device_paths.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/host/plugin/launch_calls.h"
#include "quillon/resolution/resolution.h"

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

bool isTrustedFromCache(const LaunchPlan& plan) {
  return plan.caches && plan.lists.tpa && !plan.caches->trusted.list.empty() &&
         *plan.lists.tpa == plan.caches->trusted.list;
}

bool isSharedFromCache(const LaunchPlan& plan) {
  return plan.caches && !plan.caches->shared.list.empty() &&
         plan.lists.dllPath.find(plan.caches->shared.list) != std::string::npos;
}

std::vector<Failure> warningsOf(const LaunchPlan& plan) {
  std::vector<Failure> warnings;
  if (isTrustedFromCache(plan) && !plan.caches->trusted.outdated.empty()) {
    warnings.push_back(device::outdatedList(plan.caches->trusted));
  }
  if (isSharedFromCache(plan) && !plan.caches->shared.outdated.empty()) {
    warnings.push_back(device::outdatedList(plan.caches->shared));
  }
  if (auto warning = resolution::warningAbout(plan.target.application.id, plan.runtime.additions)) {
    warnings.push_back(std::move(*warning));
  }
  return warnings;
}

}  // namespace quillon::host
