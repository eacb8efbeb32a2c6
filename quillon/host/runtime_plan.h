// Computes the runtime's properties from the application and from the plug-in's lists.
#pragma once

#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/host/assemblies/assembly_table.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::host {

// A package that the application requires, and the placeholder that will refer to its directory.
struct RequiredDpc {
  std::string package;
  std::string directory;
  std::string placeholder;  // empty if the directory cannot be opened or no placeholder is free
};

struct RuntimePlan {
  std::string frameworkVersion;  // in the device; empty if unknown
  std::string wantedVersion;     // by the application; empty if it does not state one
  AssemblyTable assemblies;      // trusted platform assemblies
  DirectoryList appPaths;
  DirectoryList nativePaths;
  DirectoryList resourceRoots;
  std::vector<std::string> placeholders;
  std::vector<RequiredDpc> requiredDpc;
  RuntimeProperties properties;
};

// The plan of a launch. Fails if the application's runtimeconfig.json cannot be read.
[[nodiscard]] Expected<RuntimePlan> planRuntime(const LaunchTarget& target,
                                                const PluginLists& lists);

// The plan of a prepared process, which does not know its application yet. The plan has none of the
// properties that depend on the application's own files.
//
// folders     used in place of LaunchTarget::folders()
// configured  the properties of the application's runtimeconfig.json
// assembly    added to the trusted assemblies
RuntimePlan planPrepared(const std::vector<std::string>& folders, const PluginLists& lists,
                         const RuntimeProperties& configured, const std::string& assembly);

// The properties in which the plan of planRuntime() differs from that of planPrepared().
RuntimeProperties propertiesOfApplication(const LaunchTarget& target, const PluginLists& lists);

// Searches every folder of APP_PATHS for files that are shadowed by another one, and adds them to
// plan.assemblies. A placeholder counts as the directory that it will refer to. Reads directories,
// so call it only if the result is shown.
void findShadowsInFolders(RuntimePlan& plan);

}  // namespace quillon::host
