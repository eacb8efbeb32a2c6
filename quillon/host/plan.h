// What a launch would do, as text for people and as JSON for programs. docs/launcher-authors.md
// describes the JSON object.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

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
  bool tpaFromCache = false;
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

}  // namespace quillon::host
