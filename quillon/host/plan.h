// What a launch would do, for people and for programs. docs/launcher-authors.md has the form of the
// latter.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "quillon/host/application/options.h"
#include "quillon/host/application/target.h"
#include "quillon/host/runtime_plan.h"

namespace quillon::host {

struct LaunchPlan {
  const LaunchOptions& options;
  const LaunchTarget& target;
  const PluginLists& lists;
  const RuntimePlan& runtime;
  std::string plugin;  // file
  bool tpaFromCache = false;
  bool bringsCompiledCode = false;  // the application's assembly, for the runtime to start with
  std::vector<Failure> refusals;    // why the application would not come to run
  std::optional<Failure> missing;   // what the machine lacks for the rest, if anything
};

void printPlanText(const LaunchPlan& plan, std::ostream& out);

// One JSON object and a line break.
void printPlanJson(const LaunchPlan& plan, std::ostream& out);

// The plug-in's calls of a launch in their order, as both forms name them.
std::vector<std::string> callsOf(const LaunchPlan& plan);

// The directories of a list that are shared resources of packages.
std::vector<std::string> cobaDirectoriesOf(const PluginLists& lists);

}  // namespace quillon::host
