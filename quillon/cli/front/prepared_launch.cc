#include "quillon/cli/front/prepared_launch.h"

#include <unistd.h>

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

// Returns why the launch must run in this process; empty if a prepared process can run it.
std::string needsOwnProcess(const LaunchOptions& options) {
  if (options.direct) {
    return "--direct is given";
  }
  if (options.plan) {
    return "--plan launches nothing";
  }
  if (!options.plugin.empty()) {
    return "--plugin names another plug-in";
  }
  if (options.validate) {
    return "--validate asks before the runtime starts";
  }
  if (!options.timeline.empty()) {
    return "--timeline records a whole launch";
  }
  if (hasChoice(options.settings)) {
    return "the runtime's settings are chosen when it starts";
  }
  if (!options.writable.empty()) {
    return "--writable needs its own mounts";
  }
  return {};
}

void explain(const std::string& why, const std::string& remedy = {}) {
  tell({"launched directly, not by the launch pad: " + why, remedy});
}

// A person at a terminal wants to know what makes the launch slow, a script does not.
bool explains(const LaunchOptions& options, const launchpad::LaunchOutcome& outcome) {
  return !outcome.status && !outcome.whyNot.empty() &&
         (options.verbose || (outcome.isLaunchable && isatty(terminalDescriptor()) != 0));
}

}  // namespace

std::optional<int> launchPrepared(const LaunchOptions& options, const workstation::LogConfig& log,
                                  const std::string& program) {
  const std::string reason = needsOwnProcess(options);
  if (!reason.empty()) {
    if (options.verbose && launchpad::isServed(options.device)) {
      explain(reason);
    }
    return std::nullopt;
  }
  const launchpad::LaunchOutcome outcome = launchpad::requestLaunch(options, log, program);
  if (explains(options, outcome)) {
    explain(outcome.whyNot, outcome.remedy);
  }
  return outcome.status;
}

}  // namespace quillon::cli
