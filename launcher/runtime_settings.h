// Settings of the runtime that change how fast an application starts.
//
// Each is a variable of the environment that the runtime reads as it is created (its public
// documentation lists them as runtime configuration settings). docs/launch-speed.md says what each
// is worth.
#pragma once

#include <optional>

namespace quillon::launcher {

// Empty: as the environment and the application's own configuration say, and the runtime's default
// where they are silent, which is on for all of them.
struct RuntimeSettings {
  std::optional<bool> tieredCompilation;
  std::optional<bool> quickJitForLoops;
  std::optional<bool> tieredPgo;
  std::optional<bool> readyToRun;
  std::optional<bool>
      writeXorExecute;              // a defence: memory is never writable and executable at once
  std::optional<bool> diagnostics;  // debugger, profiler and the diagnostic socket
};

// Puts what is chosen into the process's environment. Call before the runtime is created.
void applySettings(const RuntimeSettings& settings);

}  // namespace quillon::launcher
