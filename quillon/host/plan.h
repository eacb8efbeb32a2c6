// What a launch would do, as text for people and as JSON for programs. docs/launcher-authors.md
// describes the JSON object.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "quillon/device/cached_lists.h"
#include "quillon/host/application/options.h"
#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_lists.h"
#include "quillon/host/runtime_plan.h"

namespace quillon::host {

struct LaunchPlan {
  const LaunchOptions& options;
  const LaunchTarget& target;
  const PluginLists& lists;
  const RuntimePlan& runtime;
  std::string plugin;  // file
  // The plug-in's cached lists before it made its lists; nullopt if nobody has looked.
  std::optional<device::CachedLists> caches;
  bool readyToRun = false;         // the application's assembly has ReadyToRun code
  std::vector<Failure> refusals;   // why the launch would not reach the application
  std::optional<Failure> missing;  // what the machine lacks for the rest of the launch
};

void printPlanText(const LaunchPlan& plan, std::ostream& out);

// Prints one JSON object and a line break.
void printPlanJson(const LaunchPlan& plan, std::ostream& out);

// The calls of a direct launch in their order, with their arguments, as both forms print them.
std::vector<std::string> formatCalls(const LaunchPlan& plan);

// The directories of the list that are shared resources of packages.
std::vector<std::string> cobaDirectoriesOf(const PluginLists& lists);

// Whether the plug-in took the list of trusted assemblies, or that of shared folders, from its
// cache.
bool isTrustedFromCache(const LaunchPlan& plan);
bool isSharedFromCache(const LaunchPlan& plan);

// What may make the launch fail, although it is not refused: cached lists that are outdated.
std::vector<Failure> warningsOf(const LaunchPlan& plan);

}  // namespace quillon::host
