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
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/resolution/additions.h"

namespace quillon::host {

// A package that the application requires, and the placeholder that will refer to its directory.
struct RequiredDpc {
  std::string package;
  std::string directory;
  std::string placeholder;  // empty if the directory cannot be opened or no placeholder is free
};

// What the files of an application and of the machine say about its launch.
struct Requirements {
  RuntimeConfig config;
  std::string frameworkVersion;  // in the device; empty if unknown
  resolution::Additions additions;
};

struct RuntimePlan {
  std::string frameworkVersion;     // in the device; empty if unknown
  std::string wantedVersion;        // by the application; empty if it does not state one
  resolution::Additions additions;  // to the device's framework
  AssemblyTable assemblies;         // trusted platform assemblies
  DirectoryList appPaths;
  DirectoryList nativePaths;
  DirectoryList resourceRoots;
  std::vector<std::string> placeholders;
  std::vector<RequiredDpc> requiredDpc;
  RuntimeProperties properties;
};

// The plan of a launch.
RuntimePlan planRuntime(const LaunchTarget& target, const PluginLists& lists,
                        const Requirements& requirements);

// The plan of a prepared process, which does not know its application yet. The plan has none of the
// properties that depend on the application's own files.
//
// folders     used in place of LaunchTarget::folders()
// requirements  equal for all applications that the process may launch
// assembly      added to the trusted assemblies
RuntimePlan planPrepared(const std::vector<std::string>& folders, const PluginLists& lists,
                         const Requirements& requirements, const std::string& assembly);

// The properties in which the plan of planRuntime() differs from that of planPrepared().
RuntimeProperties propertiesOfApplication(const LaunchTarget& target, const PluginLists& lists,
                                          const resolution::Additions& additions);

// Searches every folder of APP_PATHS for files that are shadowed by another one, and adds them to
// plan.assemblies. A placeholder counts as the directory that it will refer to. Reads directories,
// so call it only if the result is shown.
void findShadowsInFolders(RuntimePlan& plan);

}  // namespace quillon::host
