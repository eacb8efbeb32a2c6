#include "quillon/cli/run_launch.h"

#include <string>

#include "quillon/base/terminal.h"
#include "quillon/launchpad/client/client.h"

namespace quillon::cli {
namespace {

using host::LaunchOptions;
using host::RuntimeSettings;

bool hasChoice(const RuntimeSettings& settings) {
  return settings.tieredCompilation || settings.quickJitForLoops || settings.tieredPgo ||
         settings.readyToRun || settings.writeXorExecute || settings.diagnostics;
}

// Why only a process of this command's own can do it; empty where another one can.
std::string needsOwnProcess(const LaunchOptions& options) {
  if (options.direct) return "--direct asks for it";
  if (options.plan) return "--plan launches nothing";
  if (!options.plugin.empty()) return "--plugin names another plug-in";
  if (options.validate) return "--validate asks before the runtime starts";
  if (!options.timeline.empty()) return "--timeline pictures a whole launch";
  if (hasChoice(options.settings)) return "the runtime's settings are chosen when it starts";
  if (!options.writable.empty()) return "--writable needs mounts of its own";
  return {};
}

void explain(const std::string& why) {
  tell({"launched directly, not by the launch pad: " + why, {}});
}

// The status to end with if the launch pad carried the launch out. Without one, this process is as
// it was.
std::optional<int> launchPrepared(const LaunchOptions& options) {
  const std::string own = needsOwnProcess(options);
  if (!own.empty()) {
    if (options.verbose && launchpad::isServed(options.device)) explain(own);
    return std::nullopt;
  }
  const launchpad::LaunchOutcome asked = launchpad::requestLaunch(options);
  if (options.verbose && !asked.status && !asked.whyNot.empty()) explain(asked.whyNot);
  return asked.status;
}

}  // namespace

int runLaunch(const LaunchOptions& options, int (*launchHere)(const LaunchOptions& options)) {
  keepTerminal();
  if (const auto ended = launchPrepared(options)) return *ended;
  return launchHere(options);
}

}  // namespace quillon::cli
