// Asking the validator about an application before any of it is loaded.
#pragma once

#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_calls.h"

namespace quillon::host {

// The assemblies in the application's own folders and in the culture folders right below them: the
// one to execute first, then the others by folder and name. Each path once.
Expected<std::vector<std::string>> assembliesOf(const LaunchTarget& target);

// Asks plugin_validate_dll about each, and stops at the first that is refused: kLibraryRefused.
// kValidatorState where no validator runs; where it ends while the launch waits, the process ends
// with that status.
//
// Launches take turns, since answers carry no name: the request pipe is locked (flock(2)) as long
// as one asks. A turn begins when no answer is under way any more: a validator locks the answer
// pipe meanwhile. Call while the process has one thread.
[[nodiscard]] Expected<void> validateAssemblies(const PluginCalls& plugin,
                                                const LaunchTarget& target);

}  // namespace quillon::host
