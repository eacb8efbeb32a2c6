// From the plug-in's lists to what the runtime is started with.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/application/target.h"
#include "quillon/host/assemblies/assembly_table.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::host {

// A package that the application requires, and the placeholder that will lead to its directory.
struct RequiredDpc {
  std::string package;
  std::string directory;
  std::string placeholder;  // empty: the directory cannot be opened, or no placeholder is left
};

struct RuntimePlan {
  std::string frameworkVersion;  // found in the device; empty: unknown
  std::string wantedVersion;     // by the application; empty: not said
  AssemblyTable assemblies;      // trusted platform assemblies
  DirectoryList appPaths;
  DirectoryList nativePaths;
  DirectoryList resourceRoots;
  std::vector<std::string> placeholders;
  std::vector<RequiredDpc> requiredDpc;
  RuntimeProperties properties;
};

// Fails where the application's runtimeconfig.json cannot be read.
[[nodiscard]] Expected<RuntimePlan> planRuntime(const LaunchTarget& target,
                                                const PluginLists& lists);

// The plan of a process that does not know its application yet: `folders` stand in the places of
// the application's own, and `configured` is what its build will say of the runtime; `assembly` is
// one more trusted assembly. The plan has none of the properties that the application's own files
// decide.
RuntimePlan planPrepared(const std::vector<std::string>& folders, const PluginLists& lists,
                         const RuntimeProperties& configured, const std::string& assembly);

// The properties in which planRuntime's plan differs from planPrepared's.
RuntimeProperties propertiesOfApplication(const LaunchTarget& target, const PluginLists& lists);

// Looks into every folder of APP_PATHS for files that lose to another one, placeholders seen as the
// directories that they will lead to. Reads directories, so it is for those who ask.
void findShadowsInFolders(RuntimePlan& plan);

}  // namespace quillon::host
