// Validates an application's assemblies before any of them is loaded.
#pragma once

#include <string>
#include <vector>

#include "quillon/host/application/target.h"
#include "quillon/host/plugin/plugin_calls.h"

namespace quillon::host {

// Passes the assemblies of the application to plugin_validate_dll: those in its own folders and in
// the culture folders directly below, the executed one first, then by folder and name, and last
// those of `selected`, which the launch uses from other folders. Fails with
// kLibraryRefused at the first assembly that is refused, and with kValidatorState if no validator
// runs. If the validator ends during a call, the process ends with kValidatorState.
//
// Answers do not name their request, so launches take turns: a launch locks the request pipe
// (flock(2)) for all of its requests. It then waits until no answer to an earlier launch is in the
// answer pipe, which the validator locks while one is. Call while the process has one thread.
[[nodiscard]] Expected<void> validateAssemblies(const PluginCalls& plugin,
                                                const LaunchTarget& target,
                                                const std::vector<std::string>& selected);

}  // namespace quillon::host
